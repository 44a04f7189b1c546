#!/bin/bash
# Mixed traffic on all six channels at once: each frame is in the host's file, as it was on the wire,
# in the order and with the time of the wire. FRAMES: how many each channel sends.
. tests/board/lib/base.sh
. tests/board/lib/recording.sh

# The capture's ring in the kernel has room for some 2000 packets, and a frame is five of them: on both
# ends, at the channel and at its capture device, and once more as it is sent. An emulated processor
# stands still for longer than it takes to fill that, so the frames come in rounds.
round=50

frames=$((${FRAMES:-400} / round * round))
open_all_channels
record_into "$file.log"
started=$SECONDS
for ((sent = 0; sent < frames; sent += round)); do
    for channel in 0 1 2 3 4 5; do
        cangen can$channel -m -g 0 -p 10 -n $round &
        generators[channel]=$!
    done
    wait "${generators[@]}"
    wait_for 30 told_records $((12 * (sent + round)))
done
echo "$((6 * frames)) frames in $((SECONDS - started)) s"
end_recording
close_wires

trace_of_wires
[ "$(wc -l <"$file.wires")" = $((12 * frames)) ] # each frame at both ends of its wire
for channel in 0 1 2 3 4 5; do
    frames_of $channel <"$file.wires" >"$file.due"
    logged_frames $channel <"$file.log" >"$file.told"
    diff <(cut -d' ' -f2 "$file.due") <(cut -d' ' -f2 "$file.told") | head -n 20
    # The file's clock is the host's: one offset for all frames, to the microsecond that a log has.
    paste -d' ' "$file.due" "$file.told" | awk -v channel="$channel" '
        { offset = $3 - $1; if (NR == 1 || offset < low) low = offset; if (NR == 1 || offset > high) high = offset }
        END { if (high - low > 1) { print "can" channel ": times differ by " high - low " us"; exit 1 } }'
done
