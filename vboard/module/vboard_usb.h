/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The USB link between its three files: the rings (vboard_usb_ring.c), the
 * application's end (vboard_usb.c) and the host's end (vboard_usb_host.c).
 */
#ifndef VBOARD_USB_H
#define VBOARD_USB_H

#include <linux/mutex.h>
#include <linux/spinlock.h>
#include <linux/timer.h>
#include <linux/types.h>
#include <linux/wait.h>

#define USB_READ_SIZE 0x100000U		/* read ring, bytes: host to application */
#define USB_WRITE_SIZE 0x1000000U	/* write ring, bytes: application to host */
#define USB_LENGTH_SIZE 0x1000000U	/* length ring, bytes */
#define USB_LENGTH_ENTRIES (USB_LENGTH_SIZE / sizeof(u32))

/*
 * The info page: six free-running indices. The application maps the page and
 * may write anything anywhere in it.
 */
struct usb_info {
	u32 read_in;	/* ours */
	u32 read_out;	/* the application's */
	u32 write_in;	/* the application's */
	u32 write_out;	/* ours */
	u32 length_in;	/* the application's */
	u32 length_out;	/* ours */
};

/*
 * Our own three indices live here and are only copied to the page, so that
 * nothing the application does there can lead us outside a ring.
 */
struct usb_link {
	struct usb_info *page;
	void *read, *write;
	u32 *length;

	struct mutex to_app;	/* guards read_in and the free part of the read ring */
	u32 read_in;

	struct mutex to_host;	/* guards write_out and length_out */
	u32 write_out;
	u32 length_out;

	spinlock_t bell;	/* guards announced */
	u32 announced;		/* length_in at the last doorbell */

	wait_queue_head_t app_wait;	/* those who wait for bytes from the host */
	wait_queue_head_t host_wait;	/* those who wait for a message, or for room */
	struct timer_list room_timer;

	atomic64_t writes_to_app, bytes_to_app;
	atomic64_t messages_to_host, bytes_to_host;
	atomic64_t doorbells, bad_lengths;
};

extern struct usb_link usb_link;

int usb_link_make(void);
void usb_link_free(void);

/* Whether the application has bytes to read. Any context. */
bool usb_link_readable(void);
/* The application has rung: the messages queued by now are the host's. Any context. */
void usb_link_doorbell(void);
/* Free bytes of the read ring as the application sees it now, 0 to USB_READ_SIZE. */
u32 usb_link_room(void);
/*
 * Whether the read ring has @want bytes of room; if not, host_wait is woken
 * soon to ask again, because the application takes bytes without telling us.
 * Does not sleep.
 */
bool usb_link_has_room(u32 want);
/* Whether a doorbell has announced a length entry that nobody has taken yet. */
bool usb_link_has_entry(void);
/*
 * The length of the next message for the host, 1 to USB_WRITE_SIZE, or 0 for
 * none. Drops and counts entries that cannot be: 0, more than the write ring
 * holds, or indices that tell of more than the rings have. Call with to_host held.
 */
u32 usb_link_next_message(void);
/* Copies @len bytes between user memory and a ring of @size bytes from @index on. */
int usb_ring_from_user(void *ring, u32 size, u32 index, const char __user *from, u32 len);
int usb_ring_to_user(const void *ring, u32 size, u32 index, char __user *to, u32 len);
/* Copies our indices to the page, after the data they speak of. */
void usb_link_publish_to_app(void);
void usb_link_publish_to_host(void);

int usb_host_make(void);
void usb_host_free(void);

#endif
