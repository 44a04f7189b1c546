#!/bin/bash
# More errors at once than the ring has slots: each is told, the first ones as what overwrote them.
. tests/board/lib/base.sh

# The identifiers of the error records of can0 that come, in their order.
identifiers() {
    vcictl raw 1001 --count 0 --wait 700 | sed -nE 's/^00.{8}6806.{16}08.{8}(..)(..).*/\2\1/p'
}

ask 1529 08 00 00 01103f10
ask 152c 08 01
ask 0916 08 01
# Twice, so that the slots wrap at different places.
for round in 1 2; do
    vboardctl can error-burst 0 300 3
    identifiers >"$VBOARD_RESULTS/record-ring.identifiers"
    diff <(for i in {256..299} {44..299}; do printf '%04x\n' "$i"; done) "$VBOARD_RESULTS/record-ring.identifiers"
    echo "round $round is well"
done
vboardctl can error-burst 0 200 3
identifiers >"$VBOARD_RESULTS/record-ring.identifiers"
diff <(for i in {0..199}; do printf '%04x\n' "$i"; done) "$VBOARD_RESULTS/record-ring.identifiers"
ask 0916 08 00
ask 152c 08 00
