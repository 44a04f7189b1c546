#!/bin/bash
# What the host is told of the frames on the wires, byte for byte: layout, order, device time.
. tests/board/lib/base.sh

# Asks, and keeps the records that come within the time; compares them with the trace.
told() { # told CHANNELS MILLISECONDS HEX...
    local channels=$1 time=$2 code
    shift 2
    vboardctl can trace clear
    vcictl raw "$@" --count 0 --wait "$time" >"$VBOARD_RESULTS/record-frames.messages"
    vboardctl can trace >"$VBOARD_RESULTS/record-frames.trace"
    awk -v told="$channels" -v wires="0-1 2-3 4-5" -f tests/board/record-expected.awk \
        "$VBOARD_RESULTS/record-frames.trace" >"$VBOARD_RESULTS/record-frames.expected"
    for code in 08 09 0a 0b 0c 0d; do
        diff <(of_channel $code "$VBOARD_RESULTS/record-frames.expected") \
            <(of_channel $code "$VBOARD_RESULTS/record-frames.messages")
    done
    wc -l <"$VBOARD_RESULTS/record-frames.expected"
}

vboardctl can wiring 0-1 2-3 4-5
vboardctl counter run 0 # so that the time is one that arithmetic here can hold
for channel in 08 09; do
    ask 1529 $channel 01 00 01103f10 02020702
    ask 152c $channel 01
done

# Nothing is told before a channel is switched on.
[ "$(told "" 300 1635 08 23010000 01 55)" = 0 ]

ask 0916 08 01
ask 0916 09 01
# Data, remote, extended; FD without and with the bit rate switch, of 12 and 64 bytes.
long=$(printf '%02x' {0..63})
[ "$(told "can0 can1" 1500 1634 08 06 23010000 02 DEAD 24010000 24 00000000 78563492 01 AA \
    FF070000 08 0102030405060708 25010000 49 000102030405060708090a0b 26010000 6f "$long")" = 12 ]
# From the other end.
[ "$(told "can0 can1" 800 1635 09 10000000 03 010203)" = 2 ]

# An error-passive sender says so in its FD frames.
vboardctl can errors 1 140 0
[ "$(told "can0 can1" 800 1635 09 11000000 61 77)" = 2 ]
[ "$(of_channel 08 "$VBOARD_RESULTS/record-frames.messages" | cut -c41-42)" = f1 ]

# Off is off, for this channel.
ask 0916 09 00
[ "$(told "can0" 800 1635 09 12000000 00)" = 1 ]
ask 0916 08 00
[ "$(told "" 300 1635 09 13000000 00)" = 0 ]

# What was told is counted, and a close says so and starts again.
ask 152c 08 00
ask 152c 09 00
wait_for 10 console_shows 'CAN Channel 0 Rx: 3 Tx: 6 Er: 0 Al: 9'
wait_for 10 console_shows 'CAN Channel 1 Rx: 6 Tx: 2 Er: 0 Al: 8'
ask 152c 08 01
ask 152c 08 00
wait_for 10 console_shows 'CAN Channel 0 Rx: 0 Tx: 0 Er: 0 Al: 0'
