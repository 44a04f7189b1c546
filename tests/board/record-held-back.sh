#!/bin/bash
# The frame that lay in the receive buffer as a channel began to listen is not told, once in the
# daemon's life.
. tests/board/lib/base.sh
rm -f /tmp/can_listen_forbidden_state

# Sends a frame on can0 and prints how many records of can1 come.
told() { vcictl raw 1635 08 "$1" 00 --count 0 --wait 500 | grep -cE '^00.{8}091909' || true; }

vboardctl can wiring 0-1-2
for channel in 08 09 0a; do
    ask 1529 $channel 00 00 01103f10
    ask 152c $channel 01
done
ask 0916 09 01
[ "$(told 01000000)" = 1 ]

vboardctl can waiting 1 80000001
ask 152d 09 01
[ "$(told 02000000)" = 0 ]
[ "$(told 03000000)" = 1 ]

# Not a second time.
ask 152d 09 00
vboardctl can waiting 1 80000001
ask 152d 09 01
[ "$(told 04000000)" = 1 ]

ask 152d 09 00
ask 0916 09 00
for channel in 08 09 0a; do ask 152c $channel 00; done
vboardctl can waiting 1 0
vboardctl can wiring 0-1 2-3 4-5
vboardctl daemon restart
rm -f /tmp/can_listen_forbidden_state
vboardctl daemon wait-ready 20
