# For the tests of LIN; read by them, no test itself.

messages=$VBOARD_RESULTS/$(basename "${0%.sh}").messages
lin_trace=$VBOARD_RESULTS/$(basename "${0%.sh}").trace

open_lin() { # open_lin CHANNEL ROLE: 19200 bit/s, recorded
    vcictl lin open "lin$1" --bitrate 19200 >/dev/null
    vcictl lin role "lin$1" "$2" >/dev/null
    ask 090c 01 "0$1" 01
}

# Starts anew what the records are compared with.
begin_records() {
    vboardctl lin trace clear
    : >"$messages"
}

# hear MILLISECONDS [HEX...]: asks, and keeps what the host is told within the time, should it be
# nothing, which is status 3.
hear() {
    local time=$1
    shift
    [ $# -gt 0 ] || set -- 1001
    vcictl raw "$@" --count 0 --wait "$time" >>"$messages" || [ $? = 3 ]
}

# The records of a channel that were told, up to the checksum on the wire.
told_records() { grep -E "^00(67000000091a|13000000091b)0$1" "$messages" | sed -E 's/^(0067.{74}).*/\1/; s/^(0013.{60}).*/\1/'; }

# Hears what still waits, until nothing comes but the answer.
hear_rest() {
    local before
    : >>"$messages"
    while :; do
        before=$(wc -l <"$messages")
        hear 300
        [ $(($(wc -l <"$messages") - before)) -gt 1 ] || return 0
    done
}

# Each frame and wake-up of the clusters was told, with the bytes and times of the wire, in order.
# Prints how many there were.
compare_records() { # compare_records CHANNEL
    hear_rest
    vboardctl lin trace >"$lin_trace"
    diff <(awk -v channel="$1" -f tests/board/lib/lin-expected.awk "$lin_trace") <(told_records "$1") >&2 || return 1
    told_records "$1" | wc -l
}

frames_of() { awk -v pid="$1" '$6 == pid' "$lin_trace" | wc -l; } # of a protected identifier

# The daemon's threads of the highest real-time priority: the capture, and one a running schedule or
# replay.
# Behind a name that is cut out, the 39th field is the priority and the 40th the policy, 1 for FIFO.
real_time_threads() { sed 's/ .*) / /' "/proc/$(vboardctl daemon pid)"/task/*/stat | awk '$39 == 99 && $40 == 1 { print $1 }'; }
running_jobs() { echo $(($(real_time_threads | wc -l) - 1)); }
