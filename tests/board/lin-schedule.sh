#!/bin/bash
# A schedule from the host's table to the wire and back as records: it runs, is exchanged while it
# runs, and changes its responses.
. tests/board/lib/base.sh
. tests/board/lib/lin.sh

vboardctl lin reset
vboardctl counter run 0 # so that the time is one that arithmetic here can hold
open_lin 0 commander
vboardctl lin 0 node 0x11 A1A2A3A4 # another node answers identifier 11

# Identifiers 10 of 2 bytes, 11 of 4, 12 of 8, nobody answers the last: 10, 10 and 20 ms.
begin_records
ask 0601 00 03 10020a00 11040a00 12081400
[ "$(running_jobs)" = 0 ]
hear 1500 0606 00 01
[ "$(running_jobs)" = 1 ]
first=$(real_time_threads)

# A response that is set is sent at once; the schedule goes on by itself.
hear 1000 0603 00 01 10 02 1122000000000000
[ "$first" != "$(real_time_threads)" ] # from its first slot again
hear 800 0606 00 00
[ "$(running_jobs)" = 0 ]
[ "$(compare_records 0)" -gt 100 ]
[ "$(awk '$6 == "0x50" && $8 == "1122" && $7 == "lin0"' "$lin_trace" | wc -l)" -gt 10 ]
[ "$(awk '$6 == "0x11" && $8 == "A1A2A3A4" && $7 == "node"' "$lin_trace" | wc -l)" -gt 30 ]
[ "$(awk '$6 == "0x92" && $10 == "noresponse"' "$lin_trace" | wc -l)" -gt 30 ]
# In the order of the table, from the first entry on.
diff <(awk '!/^#/ { print $6 }' "$lin_trace" | head -n 9) <(for i in 1 2 3; do echo 0x50 0x11 0x92; done | tr ' ' '\n')
# Median of how long a cycle takes, in microseconds: 40 ms and the rest of the last slot.
awk '$6 == "0x50" { if (last) print int(($2 - last) / 1000); last = $2 }' "$lin_trace" | sort -n |
    awk '{ v[NR] = $1 } END { printf "cycle of 40 ms, us: least %d, median %d, greatest %d\n", v[1], v[int((NR + 1) / 2)], v[NR] }'

# Exchanged while it runs: the new table alone from then on, by a thread that was started once.
begin_records
hear 500 0606 00 01
before=$(real_time_threads)
hear 700 0601 00 02 20020500 10020500
[ "$(running_jobs)" = 1 ]
[ "$before" != "$(real_time_threads)" ]
after=$(real_time_threads)
# A response is taken away, and the running schedule sends the header alone: no other thread.
hear 500 0604 00 01 10
[ "$after" = "$(real_time_threads)" ]
hear 500 0606 00 00
[ "$(compare_records 0)" -gt 100 ]
switch=$(awk '$6 == "0x20" { print NR; exit }' "$lin_trace")
[ "$(tail -n +"$switch" "$lin_trace" | awk '$6 == "0x11" || $6 == "0x92"' | wc -l)" = 0 ]
[ "$(tail -n +"$switch" "$lin_trace" | awk '$6 == "0x50" && $8 == "1122"' | wc -l)" -gt 10 ]
[ "$(tail -n 2 "$lin_trace" | awk '$6 == "0x50"' | grep -c noresponse)" = 1 ]

ask 090c 01 00 00
vcictl lin close lin0 >/dev/null
vboardctl lin reset
