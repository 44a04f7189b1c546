#!/bin/bash
# Pauses in the middle of a replay lose nothing: nothing is sent in them, and everything behind them. FRAMES
# and DURATION (seconds) make it longer.
. tests/board/lib/base.sh
. tests/board/lib/replay.sh

frames=${FRAMES:-1500}
duration=${DURATION:-4}
have_gone() { [ $(($(carried) - before)) -ge "$1" ]; }
has_paused() { [ "$(grep -ao 'paused: space goes on' "$trace.receipt" | wc -l)" -ge "$1" ]; }
# Nothing is sent for a second. The expiry that a pause takes effect at may be to come.
all_is_still() {
    held=$(carried)
    sleep 1
    [ "$(carried)" = "$held" ]
}
keys=/tmp/keys
rm -f $keys
mkfifo $keys

open_wires
make_log "$frames" "$duration" 2
vboardctl can trace keep $((2 * frames))
vboardctl can trace clear
before=$(carried)
# Keys are read from a terminal alone.
script -qec "vcictl replay $log" /dev/null <$keys >"$trace.receipt" &
replay=$!
exec 3>$keys
for pause in 1 2; do
    wait_for 60 have_gone $((frames * pause / 5))
    printf ' ' >&3
    wait_for 20 has_paused $pause
    wait_for 20 all_is_still
    [ $((held - before)) -lt "$frames" ]
    printf 'p' >&3
done
wait $replay
exec 3>&-
tr -d '\r' <"$trace.receipt" | tail -n 2
compare_with_log
grep -aq "$frames frames due, $frames sent, 0 lost; " "$trace.receipt"
end_replay
