#!/bin/bash
# Pauses in the middle of a replay lose nothing: nothing is sent in them, and everything behind them. FRAMES
# and DURATION (seconds) make it longer.
. tests/board/lib/base.sh
. tests/board/lib/replay.sh

frames=${FRAMES:-1500}
duration=${DURATION:-4}
on_wires() { vboardctl can | grep -oE 'sent=[0-9]+' | awk -F= '{ n += $2 } END { print n + 0 }'; }
carried() { [ $(($(on_wires) - before)) -ge "$1" ]; }
keys=/tmp/keys
rm -f $keys
mkfifo $keys

open_wires
make_log "$frames" "$duration" 2
vboardctl can trace keep $((2 * frames))
vboardctl can trace clear
before=$(on_wires)
# Keys are read from a terminal alone.
script -qec "vcictl replay $log" /dev/null <$keys >"$trace.receipt" &
replay=$!
exec 3>$keys
for part in 4 2; do
    wait_for 60 carried $((frames / part))
    printf ' ' >&3
    sleep 0.5 # for the key to take effect
    held=$(on_wires)
    sleep 1
    [ "$(on_wires)" = "$held" ]
    [ $((held - before)) -lt "$frames" ]
    printf 'p' >&3
done
wait $replay
exec 3>&-
tr -d '\r' <"$trace.receipt" | tail -n 2
compare_with_log
tr -d '\r' <"$trace.receipt" | grep -q "$frames frames due, $frames sent, 0 lost; "
end_replay
