#!/bin/bash
# The time of a record is that of the device, also when it jumps; one that it cannot have drops the
# frame.
. tests/board/lib/base.sh

# Sends a frame on can0 and prints the time in its record, as 16 digits from the lowest byte up.
time_told() {
    vcictl raw 1635 08 23010000 00 --count 0 --wait 400 | sed -nE 's/^00.{8}091908.{8}(.{16}).*/\1/p'
}
warnings() { grep -ac 'CAN WRONG TIMESTAMP: ' "$VBOARD_CONSOLE" || true; }

vboardctl can wiring 0-1 2-3 4-5
for channel in 08 09; do
    ask 1529 $channel 00 00 01103f10
    ask 152c $channel 01
done
ask 0916 08 01

# The counter stands still, so its time is known: 10 ns a count, here 1 s and 40,000,000,000,000,000 ns.
vboardctl counter freeze 5f5e100
[ "$(time_told)" = 00ca9a3b00000000 ]
vboardctl counter freeze e35fa931a0000
[ "$(time_told)" = 000004bfc91b8e00 ]
before=$(warnings)
vboardctl counter freeze e35fa931a0001
[ -z "$(time_told)" ]

# Back by five seconds, and by six more: only that is told on the console.
vboardctl counter freeze e35fa743300c0 # some 90 s before the limit
time_told >/dev/null
before=$(warnings)
ten=$((0xe35fa743300c0 / 100000000 * 100000000)) # at a full second
vboardctl counter freeze "$(printf %x "$ten")"
[ -n "$(time_told)" ]
[ "$(warnings)" = "$before" ]
vboardctl counter freeze "$(printf %x $((ten - 500000000)))"
[ -n "$(time_told)" ]
[ "$(warnings)" = "$before" ]
vboardctl counter freeze "$(printf %x $((ten - 1100000000)))"
[ -n "$(time_told)" ]
for _ in {1..40}; do [ "$(warnings)" = $((before + 1)) ] || sleep 0.05; done
[ "$(warnings)" = $((before + 1)) ]

vboardctl counter run 3b9aca00
ask 0916 08 00
ask 152c 08 00
ask 152c 09 00
