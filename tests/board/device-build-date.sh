#!/bin/bash
# The build date is the one that the compiler wrote into the program.
. tests/board/lib/base.sh

months='Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec'
text=$(LC_ALL=C grep -aoE "($months) [ 123][0-9] 20[0-9]{2}" "/proc/$(vboardctl daemon pid)/exe" | sort -u)
answer=$(vcictl raw 0118)
echo "program: $text; answer: $answer"
[ "$(wc -l <<<"$text")" = 1 ]
# Length, gid, sid, the constant 2, and the date with its highest byte first.
[[ $answer == "000f000000011802$(printf %08x "$(date -d "$text" +%Y%m%d)")"* ]]
