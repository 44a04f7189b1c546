#!/bin/bash
# What the daemon is once it runs: a session of its own, in "/", without the terminal it was started
# from; and what it says when there is no console.
set -eu
pid=$(vboardctl daemon pid)

[ "$(readlink "/proc/$pid/cwd")" = / ]
[ "$(readlink "/proc/$pid/fd/0")" = /dev/null ]
[ "$(readlink "/proc/$pid/fd/1")" = /dev/ttyS1 ] # what ttyPS0 is on this board
grep -q '^Umask:[[:space:]]*0000$' "/proc/$pid/status"
# Fields 5 and 6 of stat: process group and session, both its own.
read -r group session < <(sed 's/.*) //' "/proc/$pid/stat" | cut -d' ' -f3,4)
[ "$group" = "$pid" ]
[ "$session" = "$pid" ]
# Five threads: the main one, the pool's three and the capture's worker, and none besides.
[ "$(sed -n 's/^Threads:[[:space:]]*//p' "/proc/$pid/status")" = 5 ]

# The start's own texts, in order, on the output that the starter gave; the parent's status is 0.
mv /dev/ttyPS0 /dev/ttyPS0.away
trap 'mv /dev/ttyPS0.away /dev/ttyPS0' EXIT
out=$VBOARD_RESULTS/daemon-start.out
build/release/src/main/vcid >"$out" 2>&1
tries=100
until grep -q '^create failed!$' "$out" || [ $tries -eq 0 ]; do
    tries=$((tries - 1))
    sleep 0.05
done
cat "$out"
[ "$(head -n 1 "$out")" = "==========deamon==============" ]
grep -qx 'parent process ---------' "$out"
grep -qx 'Child process ---------' "$out"
[ "$(tail -n 1 "$out")" = 'create failed!' ]
