#!/bin/bash
# A reset that the kernel refuses, here since the daemon lacks the right to it: the host has its
# answer, the console is told, and the daemon goes on.
. tests/board/lib/base.sh

program=$(readlink "/proc/$(vboardctl daemon pid)/exe")
running() { pidof "$program" >/dev/null; }
gone() { ! running; }
end() {
    kill -TERM $(pidof "$program") || true
    wait_for 20 gone
    vboardctl daemon start
    vboardctl daemon wait-ready 20
}

vboardctl daemon stop
trap end EXIT
setpriv --bounding-set=-sys_boot --inh-caps=-sys_boot "$program" >/dev/null 2>>"$VBOARD_RESULTS/daemon.log"
wait_for 20 running
cat >"$VBOARD_RESULTS/device-reset-refused.script" <<'TALK'
deadline 20000
> 0101
< 00 0a000000 0101 ..*8 *
console CommCfgService::ResetDevice
console reboot faild
silence 300
> 0112
< 00 0a000000 0112 ..*8 *
TALK
vcictl talk -v "$VBOARD_RESULTS/device-reset-refused.script"
