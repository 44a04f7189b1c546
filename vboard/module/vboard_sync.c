// SPDX-License-Identifier: GPL-2.0
/*
 * The sync line's watchman, /dev/time_sync_error.
 *
 * The device turns readable (EPOLLIN) when the hardware sync line has dropped,
 * for one report of poll, select or epoll to each open file. There is nothing
 * to read: read() and write() fail with EINVAL.
 *
 * The line has no memory: a drop while nobody has the device open is lost.
 *
 * Control files:
 *   drop   write 1: one drop; ENODEV while nobody has the device open
 *   stats  open files now, drops so far
 */
#include <linux/atomic.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/slab.h>

#include "vboard.h"

static struct vboard_condition dropped;
static DECLARE_WAIT_QUEUE_HEAD(waiters);
static atomic_t open_files, drops;

static int sync_open(struct inode *inode, struct file *file)
{
	struct vboard_seat *seat = kzalloc(sizeof(*seat), GFP_KERNEL);

	if (!seat)
		return -ENOMEM;
	vboard_seat_init(&dropped, seat);
	file->private_data = seat;
	atomic_inc(&open_files);
	return nonseekable_open(inode, file);
}

static int sync_release(struct inode *inode, struct file *file)
{
	atomic_dec(&open_files);
	kfree(file->private_data);
	return 0;
}

static __poll_t sync_poll(struct file *file, struct poll_table_struct *pt)
{
	poll_wait(file, &waiters, pt);
	return vboard_seat_report(&dropped, file->private_data, pt) ? EPOLLIN | EPOLLRDNORM : 0;
}

static const struct file_operations sync_fops = {
	.owner = THIS_MODULE,
	.open = sync_open,
	.release = sync_release,
	.poll = sync_poll,
	.llseek = no_llseek,
};

static struct miscdevice sync_misc = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "time_sync_error",
	.fops = &sync_fops,
	.mode = 0600,
};

static int drop_store(char *text, void *owner)
{
	if (strcmp(text, "1"))
		return -EINVAL;
	if (!atomic_read(&open_files))
		return -ENODEV;
	atomic_inc(&drops);
	vboard_condition_raise(&dropped);
	wake_up_interruptible_poll(&waiters, EPOLLIN | EPOLLRDNORM);
	return 0;
}

static int stats_show(struct seq_file *to, void *owner)
{
	seq_printf(to, "open %d\ndrops %d\n", atomic_read(&open_files), atomic_read(&drops));
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "drop", .store = drop_store },
	{ .name = "stats", .show = stats_show },
};

static int sync_init(struct dentry *control)
{
	int err;

	vboard_condition_init(&dropped);
	err = misc_register(&sync_misc);
	if (err)
		return err;
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	return 0;
}

static void sync_exit(void)
{
	misc_deregister(&sync_misc);
}

const struct vboard_device vboard_sync = {
	.name = "sync",
	.init = sync_init,
	.exit = sync_exit,
};
