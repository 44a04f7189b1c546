#!/bin/bash
# The identity of the card, where the kernel gives another text for it or none.
. tests/board/lib/base.sh

register=$(readlink -f /sys/block/mmcblk0/device/cid)
text=/tmp/cid
show() { # show TEXT: in the place of the card's
    printf %s "$1" >"$text"
    uid=$(vcictl raw 0114)
}
: >"$text"
mount --bind "$text" "$register"
trap 'umount "$register"' EXIT

show 0123456789ABCDEFfedcba9876543210
[[ $uid == 001200000001140123456789abcdeffedcba9876543210* ]]
show 0123456789abcdefFEDCBA98765432100000 # 32 digits are enough
[[ $uid == 001200000001140123456789abcdeffedcba9876543210* ]]
show 0123456789abcdeffedcba987654321 # 31 characters: BUFFER_BUSY
[[ $uid == 000500000068020d0114* ]]
show 0123456789abcdeffedcba987654321g # no digit: OPEN_FILE_FAILED
[[ $uid == 000500000068022a0114* ]]

# No file: NO_FILE.
mount -t tmpfs tmpfs "$(dirname "$register")"
uid=$(vcictl raw 0114)
umount "$(dirname "$register")"
[[ $uid == 00050000006802290114* ]]
