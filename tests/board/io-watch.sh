#!/bin/bash
# The tool's IO commands: periodic samples at their exact times, none lost; levels as they are set.
set -euo pipefail
trap 'echo "line $LINENO: failed: $BASH_COMMAND" >&2' ERR

field() { sed -n "s/.*\"$1\":\([0-9]*\).*/\1/p"; }

vboardctl counter run 0
vcictl io off >/dev/null
for input in 1 2 3 4; do vboardctl io input $input 0; done
vboardctl io adc 1 1000
vboardctl io adc 2 2000
vcictl io out 1 high 2 low | grep -q '^output 1 high, output 2 low, device time '

lost() { vboardctl io | sed -n 's/^lost //p'; }
before=$(lost)
vcictl io on --period 20 | grep -q '^samples on, period 20, device time '
vcictl io watch -n 100 --duration 30s --json >"$VBOARD_RESULTS/io-watch.json"
vcictl io off | grep -q '^samples off, device time '
[ "$(lost)" = "$before" ]
[ "$(wc -l <"$VBOARD_RESULTS/io-watch.json")" = 100 ]
field device_ns <"$VBOARD_RESULTS/io-watch.json" |
    awk 'NR > 1 && $1 - last != 20000000 { print last, $1; bad = 1 } { last = $1 } END { exit bad }'
[ "$(field outputs <"$VBOARD_RESULTS/io-watch.json" | sort -u)" = 1 ]
[ "$(field adc2 <"$VBOARD_RESULTS/io-watch.json" | sort -u)" = 2000 ]

# What waits from then is shown first, then there is nothing more.
vcictl io watch --duration 500ms >/dev/null || true
status=0
vcictl io watch --duration 300ms || status=$?
[ $status = 3 ]

vcictl io trigger on | grep -q '^triggers on, device time '
vboardctl io input 4 1
[ "$(vcictl io watch -n 1 --duration 5s | cut -d ' ' -f 3-)" = \
    " in 0001 0000  out 10  adc  1000  2000  trigger 0x08" ]
vcictl io trigger off >/dev/null
vcictl io out 1 low >/dev/null
vboardctl io input 4 0
