#!/bin/bash
# A device whose reads give no whole sample: nothing is uploaded, it is told on standard error, the
# daemon does not spin, and samples come again behind it.
set -euo pipefail
trap 'echo "line $LINENO: failed: $BASH_COMMAND" >&2' ERR

ask() { vcictl raw "$@" >/dev/null; }
told() { grep -ac 'Failed to read interrupt info' "$VBOARD_RESULTS/daemon.log" || true; }
# Processor time of the daemon in ticks of 10 ms.
spent() { awk '{ print $14 + $15 }' "/proc/$(vboardctl daemon pid)/stat"; }
samples() { vcictl raw 1001 --count 0 --wait 300 | grep -c '^00130000001404' || true; }

ask 1401 00
for input in 1 2 3 4; do vboardctl io input $input 0; done
ask 1407 01 --drain

# One sample that is cut to 8 bytes.
before=$(told)
vboardctl io fault short 1
vboardctl io input 1 1
[ "$(samples)" = 0 ]
[ "$(told)" = $((before + 1)) ]
vboardctl io input 1 0
[ "$(samples)" = 1 ]

# Readable all the time, and nothing to read.
before=$(told)
start=$(spent)
vboardctl io fault empty 1000000
sleep 3
used=$(($(spent) - start))
lines=$(($(told) - before))
echo "3 s of a device that gives nothing: $lines reads, $((used * 10)) ms of processor time"
[ "$lines" -ge 3 ] && [ "$lines" -le 40 ] # thousands without a rest
[ "$used" -lt 60 ] # of 300
ask 1001
vboardctl io fault empty 0
vboardctl io input 1 1
for _ in {1..10}; do
    [ "$(samples)" = 0 ] || came=yes
    [ -z "${came-}" ] || break
done
[ "$came" = yes ]
ask 1407 00
vboardctl io input 1 0
