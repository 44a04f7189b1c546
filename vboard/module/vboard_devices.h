/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The devices of the board, in the order in which they are made: a new device
 * is one line here and one file vboard_<name>.c that defines
 * `const struct vboard_device vboard_<name>`. Registers come first, since the
 * others stamp with their clock.
 */
VBOARD_DEVICE(regs)
VBOARD_DEVICE(usb)
VBOARD_DEVICE(gpio)
VBOARD_DEVICE(sync)
VBOARD_DEVICE(io)
VBOARD_DEVICE(can)
VBOARD_DEVICE(lin)
