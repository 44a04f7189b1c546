// SPDX-License-Identifier: GPL-2.0
/*
 * Control files: text in, text out, one operation a write.
 *
 * A write is taken whole or refused: longer than VBOARD_CONTROL_MAX is
 * -EMSGSIZE, and what a device's store function returns below zero reaches
 * the writer as its error.
 */
#include <linux/debugfs.h>
#include <linux/module.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include "vboard.h"

static int control_show(struct seq_file *to, void *unused)
{
	const struct vboard_control *control = to->private;

	return control->show(to, control->owner);
}

static int control_open(struct inode *inode, struct file *file)
{
	const struct vboard_control *control = inode->i_private;

	if ((file->f_mode & FMODE_READ) && !control->show)
		return -EACCES;
	if ((file->f_mode & FMODE_WRITE) && !control->store)
		return -EACCES;
	return single_open(file, control_show, inode->i_private);
}

static ssize_t control_write(struct file *file, const char __user *from, size_t len, loff_t *pos)
{
	const struct vboard_control *control = file_inode(file)->i_private;
	char text[VBOARD_CONTROL_MAX + 1];
	int err;

	if (len > VBOARD_CONTROL_MAX)
		return -EMSGSIZE;
	if (copy_from_user(text, from, len))
		return -EFAULT;
	text[len] = '\0';
	err = control->store(strim(text), control->owner);
	if (err < 0)
		return err;
	*pos += len;
	return len;
}

static const struct file_operations control_fops = {
	.owner = THIS_MODULE,
	.open = control_open,
	.read = seq_read,
	.write = control_write,
	.llseek = seq_lseek,
	.release = single_release,
};

void vboard_add_controls(struct dentry *dir, const struct vboard_control *controls, size_t n)
{
	size_t i;

	for (i = 0; i < n; i++) {
		umode_t mode = (controls[i].show ? 0444 : 0) | (controls[i].store ? 0200 : 0);

		debugfs_create_file(controls[i].name, mode, dir, (void *)&controls[i],
				    &control_fops);
	}
}
