#!/bin/bash
# A frame that lies in the receive buffer at the change to listen-only mode marks its channel, and
# an orderly end of the daemon keeps the mark for the next one.
set -euo pipefail

vcictl raw 1529 0b 00 00 01103f10 >/dev/null
vboardctl can waiting 3 80000001
vcictl raw 152d 0b 01 >/dev/null
vcictl raw 152d 0a 01 >/dev/null # nothing waits there
vboardctl daemon stop
[ "$(cat /tmp/can_listen_forbidden_state)" = 8 ]
vboardctl daemon start
vboardctl daemon wait-ready 20
vcictl raw 152d 0b 00 >/dev/null
vcictl raw 152d 0a 00 >/dev/null
vboardctl daemon restart
vboardctl daemon wait-ready 20
[ "$(cat /tmp/can_listen_forbidden_state)" = 8 ] # loaded, and saved again

# Without the file the next daemon starts with no mark.
vboardctl daemon stop
rm /tmp/can_listen_forbidden_state
vboardctl daemon start
vboardctl daemon wait-ready 20
vboardctl daemon stop
[ "$(cat /tmp/can_listen_forbidden_state)" = 0 ]
vboardctl daemon start
vboardctl daemon wait-ready 20
