#!/bin/bash
# A host that stops reading while errors pour in: what the link has no room for is lost, as whole
# messages, and counted; when the host reads again, the recording goes on.
. tests/board/lib/base.sh
. tests/board/lib/recording.sh

losses() { grep -aoE 'total lost [0-9]+' "$VBOARD_CONSOLE" | tail -n 1 | tr -dc 0-9; }
# One packet announces 255 error records of can0, so that few packets fill 16 MiB.
each=255
announce() { # announce PACKETS
    local i
    for ((i = 0; i < $1; i++)); do
        printf '0 classic 000000000000000000200200010000ff' >"$VBOARD_CONTROL/can/packet"
    done
    announced=$((announced + $1))
}
send() { # send COUNT: from can2 to can3
    cangen can2 -I i -L 8 -D i -g 1 -n "$1"
}

announced=0
open_all_channels
vboardctl can error-burst 0 256 3 >/dev/null # records that can be told from each other
record_into "$file.log"
send 50
announce 2
wait_for 30 told_records $((100 + 2 * each))
kill -STOP "$recorder"
while [ -z "$(losses)" ]; do
    [ "$announced" -lt 4000 ] # far more than the link can hold
    announce 100
done
sleep 3 # the last ones are made
kill -CONT "$recorder"
# All that waits is read, when the ring is empty.
drained() { [ "$(vboardctl indices | sed -n 's/.*write_in[= ]*//p')" = "$(vboardctl indices | sed -n 's/.*write_out[= ]*//p')" ]; }
wait_for 60 drained
at=$(messages)
send 50
announce 2
wait_for 30 eval '[ $(($(messages) - at)) -ge $((100 + 2 * each)) ]'
end_recording
close_wires

trace_of_wires
for channel in 2 3; do
    frames_of $channel <"$file.wires" | cut -d' ' -f2 >"$file.due"
    logged_frames $channel <"$file.log" | cut -d' ' -f2 >"$file.told"
    [ "$(wc -l <"$file.told")" = 100 ]
    diff "$file.due" "$file.told"
done
errors=$(awk '$2 == "can0" && length($3) > 8' "$file.log" | wc -l)
missing=$((announced * each - errors))
echo "of $((announced * each)) errors $errors were told, $missing not; the daemon counted $(losses)"
# It prints each ten thousandth loss.
[ $((missing / 10000 * 10000)) = "$(losses)" ]
