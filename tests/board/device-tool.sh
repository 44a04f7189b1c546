#!/bin/bash
# What the tool shows of the device, and its clear, which waits for the next start's answer.
. tests/board/lib/base.sh

info=$(vcictl device info --json)
echo "$info"
register=$(</sys/block/mmcblk0/device/cid)
for value in '"hardware":"1.2"' '"kernel":"1.2.0"' '"software":"1.2.0"' "\"uid\":\"$register\""; do
    [[ $info == *"$value"* ]]
done
[[ $info =~ \"build\":\"20[0-9]{2}-[0-9]{2}-[0-9]{2}\" ]]

# The time goes on, in nanoseconds.
device_time() { vcictl device time --json | grep -oE '[0-9]+'; }
before=$(device_time)
sleep 0.5
[ $(($(device_time) - before)) -ge 500000000 ]

trap 'vboardctl daemon wait-ready 20 || true' EXIT
old=$(vboardctl daemon pid)
vcictl can set can0 --bitrate 500k >/dev/null
vcictl can open can0 >/dev/null
cleared=$(vcictl device clear)
echo "$cleared"
[ -n "$cleared" ]
[ "$(vboardctl daemon pid)" != "$old" ]
vboardctl can state | grep -q '^can0 .*link=down'
[ "$(vcictl raw 0112 | cut -c 1-14)" = 000a0000000112 ]
