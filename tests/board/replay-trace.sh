#!/bin/bash
# A trace on three channels, played through the host's tool: the wires carry it frame for frame, in its
# order, none lost, and the receipt says so. FRAMES and DURATION (seconds) make it longer.
. tests/board/lib/base.sh
. tests/board/lib/replay.sh

frames=${FRAMES:-1500}
open_wires
make_log "$frames" "${DURATION:-2}" 1
vboardctl can trace keep $((2 * frames))
vboardctl can trace clear
vcictl replay "$log" >"$trace.receipt"
tail -n 2 "$trace.receipt"
compare_with_log
grep -q "^$frames frames due, $frames sent, 0 lost; " "$trace.receipt"
grep -q "^$frames frames given to the device in .*, ended$" "$trace.receipt"
end_replay
