#!/bin/bash
# The capture runs on a thread of its own, the only one with a real-time priority, which is the
# highest; its recording does not move the daemon's other threads.
. tests/board/lib/base.sh

pid=$(vboardctl daemon pid)
# Policy (0 other, 1 FIFO) and real-time priority of each thread, behind the name in parentheses.
threads() { sed 's/.*) //' /proc/"$pid"/task/*/stat | awk '{ print $39, $38 }' | sort; }
threads
[ "$(threads | grep -c '^1 99$')" = 1 ]
[ "$(threads | grep -cv '^0 0$')" = 1 ]
