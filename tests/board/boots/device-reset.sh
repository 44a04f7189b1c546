#!/bin/bash
# A reset that restarts the board: a run of its own, with two boots. What was written before it is on
# the card, and the answer went out before. TAP, as of the suite.
. tests/board/lib/base.sh
trap '[ $? -eq 0 ] || printf "not ok device-reset\n1..1\n"' EXIT

case $VBOARD_BOOT in
1)
    [[ $(vcictl raw 0119 30313233343536373839) == 00020000000119* ]]
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
    # The time has begun anew, and the daemon serves the host. Little-endian seconds and more.
    now=$(vcictl raw 0112)
    [[ $now == 000a0000000112* ]]
    nanoseconds() { local t=${1:14:16} i out=; for i in 14 12 10 8 6 4 2 0; do out+=${t:$i:2}; done; echo $((16#$out)); }
    [ "$(nanoseconds "$now")" -lt $(($(cut -d. -f1 /proc/uptime) * 1000000000 + 1000000000)) ]
    echo "ok device-reset"
    echo "1..1"
    ;;
esac
