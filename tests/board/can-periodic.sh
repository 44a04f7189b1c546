#!/bin/bash
# Periodic frames: what the host asks for, what the kernel was told, what the wire saw.
. tests/board/lib/base.sh

answer() { vcictl raw "$@" | cut -c1-14; } # length, gid and sid of the answer
task() { vboardctl can tasks | awk -v frame="$1" '$1 == "can0" && $2 == frame { print $0 }'; }
column() { vboardctl can tasks | awk -v frame="$1" -v name="$2" '
    NR == 1 { for (i = 2; i <= NF; i++) if ($i == name) at = i - 1; next }
    $1 == "can0" && $2 == frame { print $at }'; }
sent() { [ "$(column "$1" sent)" -ge "$2" ]; }

vboardctl can wiring 0-1 2-3 4-5
for channel in 08 09; do
    ask 1529 $channel 01 00 01103f10 02020702
    ask 152c $channel 01
done
vboardctl can trace clear
threads=$(ls "/proc/$(vboardctl daemon pid)/task" | wc -l)

# Two tasks of 10 ms and 20 ms, 8 bytes each, in one request.
[ "$(answer 1633 08 02 23010000 0a00 08 1122334455667788 24010000 1400 08 0102030405060708)" = 000a0000001633 ]
[ "$(column 123#1122334455667788 ival2_us)" = 9980 ]
[ "$(column 124#0102030405060708 ival2_us)" = 19980 ]
# The window is 20 ms: the very first task starts two windows from now, the second where its offset
# of 240 us comes round next.
first=$(column 123#1122334455667788 ival1_us)
second=$(column 124#0102030405060708 ival1_us)
echo "first delays: $first and $second us"
[ "$first" = 40000 ]
wait_for 5 sent 124#0102030405060708 20

# On the wire: nothing but periodic frames. The kernel's timers are late by what the guest allows,
# so counts are asserted, and times are shown.
vboardctl can trace >"$VBOARD_RESULTS/periodic.trace"
awk '!/^#/ && $5 ~ /^123#/ { if (last) print ($1 - last) / 1000; last = $1 }' \
    "$VBOARD_RESULTS/periodic.trace" | sort -n >"$VBOARD_RESULTS/spacing"
awk '{ v[NR] = $1 } END { printf "spacing of 10 ms, us: least %d, median %d, greatest %d of %d\n",
    v[1], v[int((NR + 1) / 2)], v[NR], NR }' "$VBOARD_RESULTS/spacing"
[ "$(wc -l <"$VBOARD_RESULTS/spacing")" -ge 20 ]
[ "$(awk '!/^#/ && $6 != "bcm"' "$VBOARD_RESULTS/periodic.trace" | wc -l)" = 0 ]

# No thread of the daemon does this.
[ "$(ls "/proc/$(vboardctl daemon pid)/task" | wc -l)" = "$threads" ]

# A repeat replaces frame and period without a start.
ask 1633 08 01 23010000 3200 08 aabbccddeeff0011
[ "$(column 123#AABBCCDDEEFF0011 starts)" = 1 ]
[ "$(column 123#AABBCCDDEEFF0011 updates)" = 1 ]
[ "$(column 123#AABBCCDDEEFF0011 ival2_us)" = 49980 ]

# A remote frame takes the place of the data frame; and an FD frame that of the remote frame.
ask 1633 08 01 23010000 0a00 20
[ -z "$(task 123#AABBCCDDEEFF0011)" ]
[ -n "$(task 123#R)" ]
ask 1633 08 01 23010000 0a00 61 55
[ -z "$(task 123#R)" ]
[ "$(column 123##155 ival2_us)" = 9981 ]
wait_for 5 sent 123##155 3

# Period 0 stops one and leaves the other.
ask 1633 08 01 23010000 0000 41 00
[ -z "$(task 123##155)" ]
[ -n "$(task 124#0102030405060708)" ]
stopped=$(vboardctl can trace | grep -c ' 123##155 ')
count=$(column 124#0102030405060708 sent)
wait_for 5 sent 124#0102030405060708 $((count + 3))
[ "$(vboardctl can trace | grep -c ' 123##155 ')" = "$stopped" ]

# 65,535 ms is a period as well.
ask 1633 08 01 26010000 ffff 00
[ "$(column 126# ival2_us)" = 65535000 ]

# A write that the kernel refuses is told on the console, and the host has its answer.
vboardctl can refuse 12
[ "$(answer 1633 08 01 27010000 0a00 00)" = 000a0000001633 ]
vboardctl can refuse off
[ -z "$(task 127#)" ]
wait_for 5 grep -q 'ZephCanCom::WriteCanFrame errno =12' "$VBOARD_CONSOLE"

# With the daemon all tasks end.
vboardctl daemon stop
wait_for 5 test "$(vboardctl can tasks | grep -vc '^#')" = 0
vboardctl can trace clear
sleep 0.1
[ "$(vboardctl can trace | grep -vc '^#')" = 0 ]
vboardctl daemon start
vboardctl daemon wait-ready 20
for channel in 08 09; do
    ask 152c $channel 01
    ask 152c $channel 00
done
