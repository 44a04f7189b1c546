#!/bin/bash
# The start that follows a clear of the whole configuration answers it, once.
. tests/board/lib/base.sh

trap 'vboardctl daemon start || true' EXIT
vboardctl daemon stop
touch /tmp/vci-clear.flag
cat >"$VBOARD_RESULTS/clear-answer.script" <<'TALK'
run vboardctl daemon start
deadline 20000
< 00 0a000000 0108 .. .. .. .. .. .. .. .. *
run vboardctl daemon wait-ready 20
silence 200
TALK
vcictl talk -v "$VBOARD_RESULTS/clear-answer.script"
[ ! -e /tmp/vci-clear.flag ]
