#!/bin/sh
# The read index moves as the host's bytes say, seen in the page that daemon and kernel share.
set -eu

field() { vboardctl indices | sed -n "s/.*$1[= ]*\([0-9a-fA-Fx]*\).*/\1/p" | head -n 1; }

before=$(field read_out)
vcictl raw 1001 >/dev/null
[ $(($(field read_out) - before)) -eq 16 ]

# Three bytes: twelve on, past what has arrived.
before=$(field read_out)
vcictl frame 000000 >/dev/null
[ $(($(field read_out) - before)) -eq 12 ]
[ $(($(field read_out) - $(field read_in))) -eq 9 ]
vcictl raw 1001 | grep -q '^000a0000001001'

# A frame length of 0: the index stays.
before=$(field read_out)
vcictl frame 00f5ffffff100100 >/dev/null
[ "$(field read_out)" = "$before" ]
vcictl raw 1001 | grep -q '^000a0000001001'
