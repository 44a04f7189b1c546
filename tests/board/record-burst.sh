#!/bin/bash
# Bursts of 255 frames on all six channels at once: each frame is recorded at both ends, in order.
. tests/board/lib/base.sh

vboardctl can wiring 0-1 2-3 4-5
vboardctl counter run 0
for channel in 08 09 0a 0b 0c 0d; do
    ask 1529 $channel 00 00 011d0a08 # 1 Mbit/s
    ask 152c $channel 01
    ask 0916 $channel 01
done
vboardctl can trace clear

burst= # of the frames 001 to 0FF, each with its number as data
for number in {1..255}; do burst+=$(printf '%02x00000002%02xaa' "$number" "$number"); done
{
    for channel in 08 09 0a 0b 0c 0d; do echo "> 1634 $channel ff $burst"; done
} >"$VBOARD_RESULTS/record-burst.script"
vcictl talk "$VBOARD_RESULTS/record-burst.script"
: >"$VBOARD_RESULTS/record-burst.messages"
for _ in {1..20}; do
    vcictl raw 1001 --count 0 --wait 1500 >>"$VBOARD_RESULTS/record-burst.messages"
    [ "$(of_channel .. "$VBOARD_RESULTS/record-burst.messages" | wc -l)" -lt $((6 * 510)) ] || break
done

vboardctl can trace >"$VBOARD_RESULTS/record-burst.trace"
[ "$(grep -vc '^#' "$VBOARD_RESULTS/record-burst.trace")" = $((6 * 255)) ] # none lost on the way to the wire
awk -v told="can0 can1 can2 can3 can4 can5" -v wires="0-1 2-3 4-5" \
    -f tests/board/record-expected.awk "$VBOARD_RESULTS/record-burst.trace" >"$VBOARD_RESULTS/record-burst.expected"
for code in 08 09 0a 0b 0c 0d; do
    diff <(of_channel $code "$VBOARD_RESULTS/record-burst.expected") <(of_channel $code "$VBOARD_RESULTS/record-burst.messages")
    [ "$(of_channel $code "$VBOARD_RESULTS/record-burst.messages" | wc -l)" = 510 ]
done
for channel in 08 09 0a 0b 0c 0d; do
    ask 0916 $channel 00
    ask 152c $channel 00
done
