#!/bin/bash
# A reset that restarts the board: a run of its own, with two boots. What was written before it is on
# the card, and the answer went out before. TAP, as of the suite.
. tests/board/lib/base.sh
trap '[ $? -eq 0 ] || printf "not ok device-reset\n1..1\n"' EXIT

case $VBOARD_BOOT in
1)
    vcictl device serial 0123456789 --yes
    # Megabytes that wait to be written: the restart has to come behind them.
    head -c 16M /dev/urandom >/tmp/data
    sha256sum </tmp/data >"$VBOARD_RESULTS/reset.sum"
    exec 9<>/dev/mmcblk0p2 # and stays open: the last close of a block device writes it out
    cat /tmp/data >&9
    vcictl raw 0101 >"$VBOARD_RESULTS/reset.answer"
    sleep 120
    echo "the board has not restarted" >&2
    exit 1
    ;;
2)
    [[ $(<"$VBOARD_RESULTS/reset.answer") == 000a0000000101* ]]
    grep -aqF CommCfgService::ResetDevice "$VBOARD_CONSOLE"
    if grep -aqF 'reboot faild' "$VBOARD_CONSOLE"; then false; fi
    [ "$(dd if=/dev/mmcblk0p3 bs=1 skip=512 count=12 status=none)" = NV0123456789 ]
    head -c 16M /dev/mmcblk0p2 | sha256sum | cmp - "$VBOARD_RESULTS/reset.sum"
    # The time has begun anew, and the daemon serves the host.
    now=$(vcictl device time --json | grep -oE '"device_ns":[0-9]+')
    [ "${now#*:}" -lt $(($(cut -d. -f1 /proc/uptime) * 1000000000 + 1000000000)) ]
    echo "ok device-reset"
    echo "1..1"
    ;;
esac
