// SPDX-License-Identifier: GPL-2.0
/*
 * The rings of the USB link and what can be said of them.
 *
 * The memory lives as long as the module, which lives as long as any
 * descriptor or mapping of it. The indices are zero at module load and belong
 * to the link, not to an opener: a restarted application goes on with them.
 */
#include <linux/jiffies.h>
#include <linux/poll.h>
#include <linux/sched.h>
#include <linux/uaccess.h>
#include <linux/vmalloc.h>

#include "vboard_usb.h"

struct usb_link usb_link;

/* How soon somebody who waits for room asks again: one tick, 4 ms at 250 Hz. */
#define ROOM_PERIOD 1

static void on_room_timer(struct timer_list *timer)
{
	wake_up_interruptible_poll(&usb_link.host_wait, EPOLLOUT | EPOLLWRNORM);
}

int usb_link_make(void)
{
	struct usb_link *link = &usb_link;

	mutex_init(&link->to_app);
	mutex_init(&link->to_host);
	spin_lock_init(&link->bell);
	init_waitqueue_head(&link->app_wait);
	init_waitqueue_head(&link->host_wait);
	timer_setup(&link->room_timer, on_room_timer, 0);

	link->page = vmalloc_user(PAGE_SIZE);
	link->read = vmalloc_user(USB_READ_SIZE);
	link->write = vmalloc_user(USB_WRITE_SIZE);
	link->length = vmalloc_user(USB_LENGTH_SIZE);
	if (!link->page || !link->read || !link->write || !link->length) {
		usb_link_free();
		return -ENOMEM;
	}
	return 0;
}

void usb_link_free(void)
{
	del_timer_sync(&usb_link.room_timer);
	vfree(usb_link.length);
	vfree(usb_link.write);
	vfree(usb_link.read);
	vfree(usb_link.page);
}

/* Bytes in the read ring. The reader's index may stand past what has arrived, or far back. */
static u32 read_fill(void)
{
	return READ_ONCE(usb_link.read_in) - READ_ONCE(usb_link.page->read_out);
}

bool usb_link_readable(void)
{
	return read_fill() != 0;
}

/* A fill level that cannot be is taken for that of an empty ring. */
u32 usb_link_room(void)
{
	u32 fill = read_fill();

	return fill > USB_READ_SIZE ? USB_READ_SIZE : USB_READ_SIZE - fill;
}

bool usb_link_has_room(u32 want)
{
	if (usb_link_room() >= want)
		return true;
	mod_timer(&usb_link.room_timer, jiffies + ROOM_PERIOD);
	return false;
}

void usb_link_doorbell(void)
{
	unsigned long flags;

	atomic64_inc(&usb_link.doorbells);
	spin_lock_irqsave(&usb_link.bell, flags);
	WRITE_ONCE(usb_link.announced, smp_load_acquire(&usb_link.page->length_in));
	spin_unlock_irqrestore(&usb_link.bell, flags);
	wake_up_interruptible_poll(&usb_link.host_wait, EPOLLIN | EPOLLRDNORM);
}

bool usb_link_has_entry(void)
{
	return READ_ONCE(usb_link.announced) != READ_ONCE(usb_link.length_out);
}

u32 usb_link_next_message(void)
{
	struct usb_link *link = &usb_link;

	for (;; cond_resched()) {
		u32 announced = smp_load_acquire(&link->announced);
		u32 entries = announced - link->length_out;
		u32 write_in = READ_ONCE(link->page->write_in);
		u32 fill = write_in - link->write_out;
		u32 len;

		if (!entries)
			return 0;
		if (entries > USB_LENGTH_ENTRIES || fill > USB_WRITE_SIZE) {
			/* No telling what is whose: begin anew behind it all. */
			WRITE_ONCE(link->length_out, announced);
			link->write_out = write_in;
		} else {
			len = READ_ONCE(link->length[link->length_out % USB_LENGTH_ENTRIES]);
			if (len && len <= fill)
				return len;
			WRITE_ONCE(link->length_out, link->length_out + 1);
		}
		atomic64_inc(&link->bad_lengths);
		usb_link_publish_to_host();
	}
}

int usb_ring_from_user(void *ring, u32 size, u32 index, const char __user *from, u32 len)
{
	u32 at = index % size;
	u32 first = min(len, size - at);

	if (copy_from_user(ring + at, from, first) || copy_from_user(ring, from + first, len - first))
		return -EFAULT;
	return 0;
}

int usb_ring_to_user(const void *ring, u32 size, u32 index, char __user *to, u32 len)
{
	u32 at = index % size;
	u32 first = min(len, size - at);

	if (copy_to_user(to, ring + at, first) || copy_to_user(to + first, ring, len - first))
		return -EFAULT;
	return 0;
}

void usb_link_publish_to_app(void)
{
	smp_store_release(&usb_link.page->read_in, usb_link.read_in);
}

void usb_link_publish_to_host(void)
{
	smp_store_release(&usb_link.page->write_out, usb_link.write_out);
	smp_store_release(&usb_link.page->length_out, usb_link.length_out);
}
