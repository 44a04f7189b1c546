#!/bin/bash
# The serial record on the raw partition of the card, and nothing else changed there.
. tests/board/lib/base.sh

partition=/dev/mmcblk0p3
image=$VBOARD_RESULTS/device-serial.image
answer() { vcictl raw "$@" | cut -c1-20; }
on_card() { dd if=$partition bs=512 skip=1 count=1 iflag=direct status=none | head -c 12; }
has() { [ "$(on_card)" = "$1" ]; }
holds() { readlink "/proc/$(vboardctl daemon pid)"/fd/* | grep -cx $partition || true; }
positive=00020000000119

dd if=/dev/urandom of=$partition bs=64K count=16 conv=fsync status=none
cat $partition >"$image"
blockdev --rereadpt /dev/mmcblk0 # nobody holds the card
wait_for 5 test -e $partition

[[ $(answer 0119 30313233343536373839) == $positive* ]]
wait_for 5 has NV0123456789 # behind the answer
wait_for 5 console_shows 'Serial Number: NV0123456789'
wait_for 5 console_shows 'Write successful.'
printf NV0123456789 | dd of="$image" bs=1 seek=512 conv=notrunc status=none
cmp $partition "$image"

# However many are written, the partition stays open once, and so the partition table is kept.
for digits in 41424344454647484950 00000000000000000000 39383736353433323130; do
    [[ $(answer 0119 $digits) == $positive* ]]
done
wait_for 5 has NV9876543210
ask 0112 # answered behind the write, and behind what the daemon opens for it
[ "$(holds)" = 1 ]
if blockdev --rereadpt /dev/mmcblk0 2>/dev/null; then false; fi
printf NV9876543210 | dd of="$image" bs=1 seek=512 conv=notrunc status=none
cmp $partition "$image"

# No partition, but something that cannot be opened in its place: NO_FILE.
restore() {
    if [ -d $partition ]; then rmdir $partition; fi
    if [ -e $partition.away ]; then mv $partition.away $partition; fi
    blockdev --setrw $partition
}
trap restore EXIT # the next tests have a card, too
mv $partition $partition.away
mkdir $partition
refused=$(answer 0119 30303030303030303030)
restore
[ "$refused" = 00050000006802290119 ]
wait_for 5 console_shows 'CommCfgService::WriteSequence: cannot open dev/mmcblk0p3'

# The answer comes before the card is written, so that a card that takes nothing is not told.
blockdev --setro $partition
told=$(answer 0119 30303030303030303030)
ask 0112 # answered behind the write
blockdev --setrw $partition
[[ $told == $positive* ]]
cmp $partition "$image"
[ "$(holds)" -le 1 ]

# The next daemon finds the partition as this one did: not open.
vboardctl daemon restart
vboardctl daemon wait-ready 20
[ "$(holds)" = 0 ]
blockdev --rereadpt /dev/mmcblk0
wait_for 5 test -e $partition
