// SPDX-License-Identifier: GPL-2.0
/*
 * The host's end of the USB link, /dev/usb-zeph-host, one opener at a time
 * (EBUSY for the second). It is there whether or not the application's end is
 * attached.
 *
 * write(): appends bytes to the read ring as they stand and wakes the
 * application. Up to 1 MiB arrives whole, in one step; more goes in pieces of
 * 1 MiB. Waits for room; with O_NONBLOCK EAGAIN, or the part that went. A
 * reader that has skipped past what has arrived leaves the whole ring free.
 *
 * read(): one message, cut by the length ring, once a doorbell has announced
 * it. A buffer that is too small is EMSGSIZE and the message stays. Waits for
 * a message; with O_NONBLOCK EAGAIN.
 *
 * poll(): EPOLLIN for a message, EPOLLOUT while half of the read ring is free.
 */
#include <linux/bitops.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/poll.h>

#include "vboard_usb.h"

static unsigned long is_open;

static int host_open(struct inode *inode, struct file *file)
{
	if (test_and_set_bit(0, &is_open))
		return -EBUSY;
	return nonseekable_open(inode, file);
}

static int host_release(struct inode *inode, struct file *file)
{
	clear_bit_unlock(0, &is_open);
	return 0;
}

/* Puts @len bytes, at most a ring's worth, into the read ring, or -EAGAIN for want of room. */
static int append(const char __user *from, u32 len)
{
	struct usb_link *link = &usb_link;
	int err;

	err = mutex_lock_interruptible(&link->to_app);
	if (err)
		return err;
	if (usb_link_room() < len) {
		err = -EAGAIN;
	} else {
		err = usb_ring_from_user(link->read, USB_READ_SIZE, link->read_in, from, len);
		if (!err) {
			WRITE_ONCE(link->read_in, link->read_in + len);
			usb_link_publish_to_app();
		}
	}
	mutex_unlock(&link->to_app);
	return err;
}

static ssize_t host_write(struct file *file, const char __user *from, size_t len, loff_t *pos)
{
	struct usb_link *link = &usb_link;
	size_t done = 0;
	int err = 0;

	while (done < len && !err) {
		u32 piece = min_t(size_t, len - done, USB_READ_SIZE);

		err = append(from + done, piece);
		if (!err) {
			done += piece;
			atomic64_inc(&link->writes_to_app);
			atomic64_add(piece, &link->bytes_to_app);
			wake_up_interruptible_poll(&link->app_wait, EPOLLIN | EPOLLRDNORM);
		} else if (err == -EAGAIN && !(file->f_flags & O_NONBLOCK)) {
			err = wait_event_interruptible(link->host_wait, usb_link_has_room(piece));
		}
	}
	return done ? (ssize_t)done : (ssize_t)err;
}

static ssize_t host_read(struct file *file, char __user *to, size_t size, loff_t *pos)
{
	struct usb_link *link = &usb_link;
	u32 len;
	int err;

	for (;;) {
		err = mutex_lock_interruptible(&link->to_host);
		if (err)
			return err;
		len = usb_link_next_message();
		if (len)
			break;
		mutex_unlock(&link->to_host);
		if (file->f_flags & O_NONBLOCK)
			return -EAGAIN;
		err = wait_event_interruptible(link->host_wait, usb_link_has_entry());
		if (err)
			return err;
	}

	if (size < len)
		err = -EMSGSIZE;
	else
		err = usb_ring_to_user(link->write, USB_WRITE_SIZE, link->write_out, to, len);
	if (!err) {
		link->write_out += len;
		WRITE_ONCE(link->length_out, link->length_out + 1);
		usb_link_publish_to_host();
		atomic64_inc(&link->messages_to_host);
		atomic64_add(len, &link->bytes_to_host);
	}
	mutex_unlock(&link->to_host);
	return err ? (ssize_t)err : (ssize_t)len;
}

static __poll_t host_poll(struct file *file, struct poll_table_struct *pt)
{
	__poll_t mask = 0;

	poll_wait(file, &usb_link.host_wait, pt);
	mutex_lock(&usb_link.to_host);
	if (usb_link_next_message())
		mask |= EPOLLIN | EPOLLRDNORM;
	mutex_unlock(&usb_link.to_host);
	if (usb_link_has_room(USB_READ_SIZE / 2))
		mask |= EPOLLOUT | EPOLLWRNORM;
	return mask;
}

static const struct file_operations host_fops = {
	.owner = THIS_MODULE,
	.open = host_open,
	.release = host_release,
	.read = host_read,
	.write = host_write,
	.poll = host_poll,
	.llseek = no_llseek,
};

static struct miscdevice host_misc = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "usb-zeph-host",
	.fops = &host_fops,
	.mode = 0600,
};

int usb_host_make(void)
{
	return misc_register(&host_misc);
}

void usb_host_free(void)
{
	misc_deregister(&host_misc);
}
