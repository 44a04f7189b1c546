#!/bin/bash
# The host's files, read by the programs of the field on the board itself: tshark shows identifiers,
# flags, directions and times as the wire had them, canplayer sends a log again.
. tests/board/lib/base.sh
. tests/board/lib/recording.sh

open_all_channels
record_into "$file.pcapng"
cansend can0 123#DEADBEEF
cansend can1 12345678#R3
cansend can0 7FF##3000102030405060708090A0B
cansend can1 00000005#
await_wires 4
end_recording

# The same from the trace, each frame at its sender, then at the other end.
number='function number(hex,  v, i) { for (i = 1; i <= length(hex); i++) v = v * 16 + index("0123456789ABCDEF", substr(hex, i, 1)) - 1; return v }'
vboardctl can trace | awk "$number"'
    function row(channel, direction) {
        printf "can%d|0x0000000%d|%d|%d|%d|%s|%s|%s|%s\n", channel, direction, number(id), len,
            length(id) == 8, rtr, brs, tolower(data), end
    }
    !/^#/ && $7 == "ok" {
        sender = substr($4, 4); end = $3
        mark = index($5, "#"); id = substr($5, 1, mark - 1); data = substr($5, mark + 1)
        rtr = 0; brs = ""
        if (data ~ /^#/) { brs = number(substr(data, 2, 1)) % 2; rtr = ""; data = substr(data, 3) }
        len = length(data) / 2
        if (data ~ /^R/) { rtr = 1; len = substr(data, 2) + 0; data = "" }
        row(sender, 2); row(1 - sender, 1)
    }' | sort >"$file.due"
tshark -r "$file.pcapng" -T fields -E "separator=|" -E occurrence=f -e frame.interface_name \
    -e frame.packet_flags_direction -e can.id -e can.len -e can.flags.xtd -e can.flags.rtr \
    -e canfd.flags.brs -e data.data -e frame.time_epoch 2>/dev/null |
    sort >"$file.told"
cat "$file.due" "$file.told"
[ "$(wc -l <"$file.told")" = 8 ]
diff <(sed 's/|[^|]*$//' "$file.due") <(sed 's/|[^|]*$//' "$file.told")
# One offset between the device's clock and the file's, in nanoseconds: their ends tell it, since
# the two numbers are too long for arithmetic here.
paste -d'|' "$file.due" "$file.told" | awk -F'|' '{
    due = substr($9, length($9) - 8); told = substr($NF, length($NF) - 8)
    offset = (told - due + 1000000000) % 1000000000
    if (NR > 1 && offset != first) { print "offset", first, "then", offset; exit 1 }
    first = offset }'

# The log, played on another wire.
record_into "$file.log"
cansend can0 321#0102030405060708
cansend can0 11111111#R
cansend can0 322##1AABBCCDD
await_wires 7
end_recording
vboardctl can trace clear
canplayer -t -I "$file.log" can2=can0
await_wires 10
diff <(vboardctl can trace | awk '!/^#/ { print $4, $5, $7 }') - <<'END'
can2 321#0102030405060708 ok
can2 11111111#R ok
can2 322##1AABBCCDD ok
END
log2asc -I "$file.log" can0 can1 can2 can3 can4 can5 | grep -c '  Rx \|  Tx '
close_wires
