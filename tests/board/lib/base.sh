# What the scripts of this directory begin with: a failed command ends the test and names its line.

set -euo pipefail
trap 'echo "line $LINENO: failed: $BASH_COMMAND" >&2' ERR

# Asks, and is content with any answer: what a request did shows in what follows it.
ask() { vcictl raw "$@" >/dev/null; }

wait_for() { # wait_for SECONDS CMD...: until CMD succeeds, VCI_TIME_SCALE times as long
    local end=$((SECONDS + $1 * ${VCI_TIME_SCALE:-1}))
    shift
    until "$@"; do
        [ $SECONDS -lt $end ] || { echo "waited in vain: $*" >&2 && return 1; }
        sleep 0.05
    done
}

# Since the test has begun.
console_begin=$(stat -c %s "$VBOARD_CONSOLE")
console_shows() { grep -aqF "$1" <(tail -c +$((console_begin + 1)) "$VBOARD_CONSOLE"); }

is() { [ "$("${@:2}")" = "$1" ]; } # is TEXT CMD...: what CMD prints, for wait_for

# Frames that the wires have carried since the board's start.
carried() { vboardctl can | grep -oE 'sent=[0-9]+' | awk -F= '{ n += $2 } END { print n + 0 }'; }

# The CAN frame records of a channel code in a file of messages, in the order of their arrival.
of_channel() { grep -E "^00.{8}0919$1" "$2" || true; }

# All CAN channels, two on a wire, at 1 and 8 Mbit/s.
open_wires() {
    local channel
    vboardctl can wiring 0-1 2-3 4-5
    for channel in 0 1 2 3 4 5; do
        vcictl can set can$channel --bitrate 1M --dbitrate 8M >/dev/null
        vcictl can open can$channel >/dev/null
    done
}

close_wires() {
    local channel
    for channel in 0 1 2 3 4 5; do vcictl can close can$channel >/dev/null; done
}
