#!/bin/bash
# A clear of the whole configuration while everything runs: all of it ends, and the answer comes
# from the next daemon, once.
. tests/board/lib/base.sh
. tests/board/lib/lin.sh

ends() { grep -c 'vcid ended (exit status 0), starting again' "$VBOARD_RESULTS/supervisor.log" || true; }
cleared='^000a0000000108'
hear_cleared() {
    hear 1000
    grep -q "$cleared" "$messages"
}
hear_both_buses() {
    hear 2000
    grep -q '^00.\{8\}091908' "$messages" && [ "$(told_records 0 | wc -l)" -gt 5 ]
}
told() { grep -v '^000a0000001001' "$messages"; } # less the answers to the questions of `hear`
tasks() { vboardctl can tasks | grep -vc '^#' || true; }

vboardctl lin reset
vboardctl counter run 0
vboardctl can wiring 0-1 2-3 4-5
for channel in 08 09; do
    ask 1529 $channel 01 00 01103f10 02020702
    ask 152b $channel 02
    ask 152c $channel 01
    ask 0916 $channel 01
done
ask 1633 08 01 23010000 c800 08 1122334455667788 # few, so that a slow host keeps up
ask 1402 01 01 01
ask 1401 01
ask 1403 e803
open_lin 0 commander
ask 0601 00 02 10026400 11046400
begin_records
hear 2000 0606 00 01
wait_for 30 hear_both_buses
[ "$(running_jobs)" = 1 ]
# A replay: a frame after 1 ms, and one that waits for 100 s. Its thread has a schedule's priority.
hear_replayed() {
    hear 500
    grep -q '^00.\{8\}09190855010000' "$messages"
}
ask 1201 0200 00 e8030000 55010000 01 aa 00 00e1f505 56010000 01 bb
wait_for 20 hear_replayed
[ "$(running_jobs)" = 2 ]
[ "$(tasks)" = 1 ]
vboardctl can state | grep -q '^can0 .*link=up.*termination=[23]'

old=$(vboardctl daemon pid)
ends_before=$(ends)
begin_records
hear 1000 0108
wait_for 30 hear_cleared
hear 1000
[ "$(grep -c "$cleared" "$messages")" = 1 ]
[[ $(told | tail -n 1) =~ $cleared ]] # nothing more is recorded
[ "$(grep -c '^00050000006802' "$messages")" = 0 ]
vboardctl daemon wait-ready 20
[ "$(vboardctl daemon pid)" != "$old" ]
[ ! -e /tmp/vci-clear.flag ]
wait_for 5 console_shows 'clear all config!'
wait_for 5 console_shows 'ready to exit!'
wait_for 5 console_shows 'vci manage normal exit!'
[ "$(ends)" = $((ends_before + 1)) ]

# Of what ran nothing is left.
wait_for 20 is 0 running_jobs
[ "$(tasks)" = 0 ]
vboardctl can state >"$VBOARD_RESULTS/device-clear.can"
vboardctl lin 0 >"$VBOARD_RESULTS/device-clear.lin"
vboardctl io >"$VBOARD_RESULTS/device-clear.io"
cat "$VBOARD_RESULTS"/device-clear.{can,lin,io}
[ "$(grep -c '^can[0-5] .*link=down.* termination=0' "$VBOARD_RESULTS/device-clear.can")" = 6 ]
grep -q '^lin0 .*link=down' "$VBOARD_RESULTS/device-clear.lin"
grep -q '^lin0 .*open_rx=0' "$VBOARD_RESULTS/device-clear.lin"
for register in 0x88000000 0x88000004 0x88000008 0x8800000C 0x88000010; do
    [ "$(vboardctl devmem $register)" = 0x00000000 ]
done
[[ $(vcictl raw 1633 08 00) == 000500000068020c1633* ]] # the channel is closed

# A wrong length is refused, and everything is cleared all the same.
old=$(vboardctl daemon pid)
begin_records
hear 1000 0108 00
wait_for 30 hear_cleared
hear 500
[[ $(told | head -n 1) == 000500000068020a0108* ]]
[[ $(told | tail -n 1) =~ $cleared ]]
[ "$(told | wc -l)" = 2 ]
vboardctl daemon wait-ready 20
[ "$(vboardctl daemon pid)" != "$old" ]

# What comes with a clear is the next daemon's: an output that is set behind it stays set.
begin_records
vcictl frame 00020000000108000000000000000000 00050000001402010101000000000000 --count 0 --wait 1000 >>"$messages" ||
    [ $? = 3 ] # nothing within the time: a slow start is waited for below
wait_for 30 hear_cleared
hear 500
[[ $(told | head -n 1) =~ $cleared ]]
[[ $(told | sed -n 2p) == 000a0000001402* ]]
[ "$(vboardctl devmem 0x8800000C)" = 0x00000001 ]
ask 1402 01 01 00
vboardctl daemon wait-ready 20
vboardctl lin reset
