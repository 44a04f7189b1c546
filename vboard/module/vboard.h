/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The virtual board's drivers: what the files of the module share.
 *
 * Each device is one file with its contract at the top. It has two faces: the
 * one that the application sees (a character device, a GPIO chip, registers)
 * and the control files that tests use, in /sys/kernel/debug/vboard/<device>/.
 */
#ifndef VBOARD_H
#define VBOARD_H

#include <linux/platform_device.h>
#include <linux/poll.h>
#include <linux/seq_file.h>
#include <linux/spinlock.h>
#include <linux/types.h>

/* ---- devices ---------------------------------------------------------- */

struct dentry;

/*
 * A device of the board. @init runs once at module load, may sleep, and gets
 * the device's own control directory, whose name is @name. A negative result
 * refuses the whole module. @exit runs in the opposite order, and only after
 * its @init has succeeded; the control files are gone by then.
 */
struct vboard_device {
	const char *name;
	int (*init)(struct dentry *control);
	void (*exit)(void);
};

/* The parent of everything that wants one; valid from before the first @init. */
extern struct platform_device *vboard_parent;

/* ---- control files ---------------------------------------------------- */

/*
 * A control file. @show prints its content; @store gets one write's text,
 * at most VBOARD_CONTROL_MAX bytes, ended by a zero, trimmed of surrounding
 * white space, and may change it. Either may be NULL: the file then lacks
 * that permission. Both may sleep. @owner is the device's own.
 */
struct vboard_control {
	const char *name;
	int (*show)(struct seq_file *to, void *owner);
	int (*store)(char *text, void *owner);
	void *owner;
};

#define VBOARD_CONTROL_MAX 255

/* Makes one file of each of the @n controls, which must outlive the module's use. */
void vboard_add_controls(struct dentry *dir, const struct vboard_control *controls, size_t n);

/* ---- conditions that last for one report ------------------------------- */

/*
 * A condition of a device that poll, select or epoll reports once to each open
 * file, with no read or ioctl to clear it. A condition has no memory for files
 * that are opened later; raised twice before a report, it is reported once.
 */
struct vboard_condition {
	spinlock_t lock;
	u32 raised;	/* how often it was raised, modulo 2^32 */
};

/* One open file's view of a condition. */
struct vboard_seat {
	u32 taken;	/* @raised at the last report that reached the reader */
	u32 offered;	/* @raised at the last poll that also registered a waiter */
};

void vboard_condition_init(struct vboard_condition *c);
void vboard_condition_raise(struct vboard_condition *c);
void vboard_seat_init(struct vboard_condition *c, struct vboard_seat *seat);
/* Called from ->poll: whether to report the condition to this file now. */
bool vboard_seat_report(struct vboard_condition *c, struct vboard_seat *seat,
			const struct poll_table_struct *pt);

/* ---- device time ------------------------------------------------------ */

/*
 * The exact device time in nanoseconds: what the 100 MHz counter would show
 * if ordinary memory could count by itself, in steps of 10. Any context.
 */
u64 vboard_time_ns(void);
/* The device time at a moment of the kernel's monotonic clock. Any context. */
u64 vboard_time_at(u64 monotonic_ns);

/*
 * Calls @beat each time the counter's memory is written, in hard interrupt
 * context with a raw lock held: it must not ask for the device time. For
 * registers that react to what is written into them. One at a time; NULL ends
 * it, and nobody is in it any more when the call returns.
 */
void vboard_set_beat(void (*beat)(void));

#endif
