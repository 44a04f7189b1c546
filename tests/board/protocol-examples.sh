#!/bin/bash
# The conversations of docs/host-protocol.md, in the order of the page, each as it stands there.
. tests/board/lib/base.sh

examples=$VBOARD_RESULTS/protocol-examples
rm -rf "$examples"
mkdir "$examples"
awk -v folder="$examples" '
    /^### / { name = tolower(substr($0, 5)); gsub(/[^a-z0-9]+/, "-", name) }
    /^```talk$/ { file = sprintf("%s/%02d-%s.talk", folder, ++n, name); next }
    /^```$/ { file = "" }
    file { print >file }' docs/host-protocol.md
[ "$(ls "$examples" | wc -l)" = "$(grep -c '^```talk$' docs/host-protocol.md)" ]
failed=0
for example in "$examples"/*; do
    echo "== $(basename "$example")"
    vcictl talk -v "$example" || failed=$((failed + 1))
done
vcictl can close can0 >/dev/null
vboardctl lin reset
[ $failed = 0 ]
