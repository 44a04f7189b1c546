# For the tests that record all channels through vcictl into a file; read by them, no test itself.

file=$VBOARD_RESULTS/$(basename "${0%.sh}")-recorded # of results, less the extension
declare -a generators

open_all_channels() {
    open_wires
    vboardctl can trace clear
    carried_before=$(carried)
}

messages() { vboardctl stats | awk '$1 == "messages_to_host" { print $2 }'; }

# record_into FILE: until end_recording. Returns when all channels are switched on: five answers tell
# the time and one each switch.
record_into() {
    rm -f "$1"
    messages_before=$(messages)
    vcictl record -o "$1" >"$file.record" 2>&1 &
    recorder=$!
    wait_for 20 is_switched_on
    messages_before=$(messages)
}

# told_records COUNT: the host has read so many messages since then.
told_records() { [ $(($(messages) - messages_before)) -ge "$1" ]; }

is_switched_on() { [ $(($(messages) - messages_before)) -ge 11 ]; }

end_recording() {
    sleep 2 # what waits in the link
    kill -TERM "$recorder"
    wait "$recorder" || [ $? = 143 ] # ended by this signal, everything written
    cat "$file.record"
}

await_wires() { # await_wires COUNT: until so many frames were carried since open_all_channels
    local i
    for ((i = 0; i < 600; i++)); do
        [ $(($(carried) - carried_before)) -lt "$1" ] || return 0
        sleep 0.2
    done
    echo "the wires carried $(($(carried) - carried_before)) of $1 frames" >&2
    return 1
}

# The frames that the wires carried, as the channels at both ends of each had to see them: channel,
# time in nanoseconds, frame.
trace_of_wires() {
    vboardctl can trace | awk '!/^#/ && $7 == "ok" {
        sender = substr($4, 4); other = sender % 2 ? sender - 1 : sender + 1
        print sender, $3, $5; print other, $3, $5 }' >"$file.wires"
}

# Of one channel: time in microseconds and frame.
frames_of() { awk -v channel="$1" '$1 == channel { print int($2 / 1000), $3 }'; }
logged_frames() { awk -v name="can$1" '$2 == name { time = $1; gsub(/[().]/, "", time); print time, $3 }'; }
