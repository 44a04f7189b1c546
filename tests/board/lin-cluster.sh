#!/bin/bash
# Both channels in one cluster: what the responder has been given answers the commander, and faults
# on the wire reach the host from both ends as what they are.
. tests/board/lib/base.sh
. tests/board/lib/lin.sh

vboardctl lin reset
vboardctl lin wiring 0-1
vboardctl counter run 0
open_lin 0 commander
open_lin 1 responder
begin_records
hear 300 0603 01 02 12 08 1122334455667788 13 01 5500000000000000
ask 0601 00 03 12080a00 13010a00 14020a00
hear 1000 0606 00 01
# The next two frames of identifier 12 come with a wrong checksum, and nobody answers the next two
# headers of 13. A channel has one fault at a time, and both share the wire.
vboardctl lin 0 fault checksum 2 0x12
vboardctl lin 1 fault response 2 0x13
hear 600
# The responder forgets one.
hear 500 0604 01 01 13
hear 500 0606 00 00
[ "$(compare_records 0)" -gt 60 ]
[ "$(compare_records 1)" = "$(compare_records 0)" ]
[ "$(awk '$6 == "0x92" && $7 == "lin1" && $10 == "ok"' "$lin_trace" | wc -l)" -gt 20 ]
[ "$(awk '$6 == "0x92" && $10 == "checksum"' "$lin_trace" | wc -l)" = 2 ]
[ "$(awk '$6 == "0xD3" && $10 == "ok"' "$lin_trace" | wc -l)" -gt 10 ]
# Before the last answer to 13, that is before the responder forgot it.
[ "$(awk '$6 == "0xD3" && $10 == "ok" { then = missing } $6 == "0xD3" && $10 == "noresponse" { missing++ }
    END { print then }' "$lin_trace")" = 2 ]
[ "$(tail -n 3 "$lin_trace" | awk '$6 == "0xD3"' | grep -c noresponse)" = 1 ]

# A single frame with its timing, from the commander: a break of 20 bits and a delimiter of 2.
begin_records
hear 300 0607 00 01 00 02 55 00 92 14 02 aabb000000000000 000000000000000000 804b0000 804b0000
[ "$(compare_records 0)" = 1 ]
grep -q ' lin0 0x92 lin0 AABB ' "$lin_trace"
# They are the second and the third timing word of its record, which begin with the 41st byte.
[ "$(grep '^0067000000091a00' "$messages" | cut -c89-104)" = 1400000002000000 ]

# The responder wakes the bus, twice. Both channels tell of it, and the commander has nothing to start.
ask 0605 00 00
begin_records
hear 1500 0608 01 00 01 02 3200 fa00 00
[ "$(compare_records 0)" = 2 ]
[ "$(compare_records 1)" = 2 ]

for channel in 0 1; do
    ask 090c 01 0$channel 00
    vcictl lin close lin$channel >/dev/null
done
vboardctl lin reset
