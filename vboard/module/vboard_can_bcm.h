/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The broadcast manager between its two files: sockets and their messages
 * (vboard_can_bcm.c), and the tasks that send by themselves (vboard_can_task.c).
 */
#ifndef VBOARD_CAN_BCM_H
#define VBOARD_CAN_BCM_H

#include <linux/can/bcm.h>
#include <linux/hrtimer.h>
#include <linux/list.h>
#include <linux/netdevice.h>
#include <net/sock.h>

#include "vboard_can.h"

/* Periodic frames of one interface, id and kind. Times are monotonic nanoseconds. */
struct bcm_task {
	struct list_head of_socket;	/* guarded by the socket's lock */
	struct list_head of_all;	/* guarded by a lock of vboard_can_task.c */
	struct sock *sk;
	int ifindex;
	char interface[IFNAMSIZ];
	canid_t can_id;
	bool fd;
	u32 room;			/* frames that it can hold */

	spinlock_t lock;		/* guards the rest */
	struct hrtimer timer;
	bool running;
	u64 due_ns;			/* the next expiry while running */
	u64 wound_ns;			/* what the timer is set to */
	u64 stall_end_ns;		/* the machine stood still shortly before this */
	u32 count;			/* frames that are left at ival1 */
	u64 ival1_ns, ival2_ns;
	struct canfd_frame *frames;
	u32 frame_count, next_frame;
	u64 sent, starts, updates, left_out, skipped;
};

/* A task that does nothing yet; NULL if there is no memory. May sleep. */
struct bcm_task *bcm_task_make(struct sock *sk, const struct net_device *dev, canid_t can_id,
			       bool fd, u32 room);
/* Does what a TX_SETUP message says, which has been checked. @frames are head->nframes. */
void bcm_task_set(struct bcm_task *task, const struct bcm_msg_head *head,
		  const struct canfd_frame *frames);
/* Nothing of the task is in use any more when this returns. May sleep. */
void bcm_task_end(struct bcm_task *task);

/* Sends one frame; a result below 0 is the interface's error. Soft interrupts are off. */
int bcm_send_frame(struct sock *sk, int ifindex, const struct canfd_frame *frame, bool fd);

void bcm_tasks_make(struct dentry *control);

#endif
