# The records that a host is due for a trace of the wires, as hex, one line each. Reads the lines of
# `vboardctl can trace`; `told` names the channels whose records are wanted, such as "can0 can1", and
# `wires` who shares a wire, such as "0-1 2-3 4-5". All channels are taken to be on their wires.
function le(value, bytes,    text) {
    for (text = ""; bytes > 0; bytes--) {
        text = text sprintf("%02x", value % 256)
        value = int(value / 256)
    }
    return text
}

function number(hex,    value, i) {
    for (i = 1; i <= length(hex); i++) {
        value = value * 16 + index("0123456789ABCDEF", substr(hex, i, 1)) - 1
    }
    return value
}

function dlc_of(len) {
    return len <= 8 ? len : len <= 24 ? 6 + len / 4 : len == 32 ? 13 : len == 48 ? 14 : 15
}

function record(channel, received, time, frame,    mark, id, flags, data, len, n, text) {
    mark = index(frame, "#")
    id = number(substr(frame, 1, mark - 1)) + (mark == 9 ? 2147483648 : 0)
    flags = received * 128
    data = substr(frame, mark + 1)
    if (data ~ /^#/) {
        flags += 64 + number(substr(data, 2, 1)) % 2 * 32 + int(number(substr(data, 2, 1)) / 2) * 16
        data = substr(data, 3)
    } else if (data ~ /^R/) {
        flags += 32
        len = substr(data, 2) + 0
        data = substr("0000000000000000", 1, 2 * len)
    }
    len = length(data) / 2
    n = 16 + len
    text = "00" le(n, 4) "0919" le(channel + 8, 1) le(id, 4) le(time, 8) \
        le(flags + dlc_of(len), 1) tolower(data)
    while (length(text) / 2 < int((n + 14) / 4) * 4) {
        text = text "00"
    }
    return text
}

!/^#/ && $7 == "ok" {
    sender = substr($4, 4) + 0
    count = split(wires, groups, " ")
    for (g = 1; g <= count; g++) {
        if (index(groups[g], sender) == 0) {
            continue
        }
        members = split(groups[g], member, "-")
        for (m = 1; m <= members; m++) {
            if (index(told, "can" member[m])) {
                print record(member[m] + 0, member[m] + 0 != sender, $3, $5)
            }
        }
    }
}
