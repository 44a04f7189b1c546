// SPDX-License-Identifier: GPL-2.0
/*
 * Conditions that last for one report.
 *
 * The application never reads these devices: what it was told, it knows. So a
 * condition ends for a file when a poll has told it. The difficulty is that
 * not each call of ->poll tells somebody:
 *
 *  - epoll_wait() fetches with no waiter to register. What it is told, the
 *    application gets. A level-triggered entry is asked again at the next
 *    epoll_wait(), and has to be told "nothing" then.
 *  - EPOLL_CTL_ADD registers a waiter and only notes that the file is ready;
 *    the application learns it from the fetch that follows.
 *  - poll() and select() register a waiter at first, and the application gets
 *    what that call says; a fetch follows only if it said nothing.
 *
 * Hence: a fetch takes the condition. A registration only offers it; a second
 * registration with no fetch in between means that the first one was poll(),
 * which has passed the offer on.
 */
#include "vboard.h"

void vboard_condition_init(struct vboard_condition *c)
{
	spin_lock_init(&c->lock);
	c->raised = 0;
}

void vboard_condition_raise(struct vboard_condition *c)
{
	unsigned long flags;

	spin_lock_irqsave(&c->lock, flags);
	c->raised++;
	spin_unlock_irqrestore(&c->lock, flags);
}

void vboard_seat_init(struct vboard_condition *c, struct vboard_seat *seat)
{
	unsigned long flags;

	spin_lock_irqsave(&c->lock, flags);
	seat->taken = c->raised;
	seat->offered = c->raised;
	spin_unlock_irqrestore(&c->lock, flags);
}

bool vboard_seat_report(struct vboard_condition *c, struct vboard_seat *seat,
			const struct poll_table_struct *pt)
{
	unsigned long flags;
	bool report;

	spin_lock_irqsave(&c->lock, flags);
	if (poll_does_not_wait(pt)) {
		report = seat->taken != c->raised;
		seat->taken = c->raised;
	} else {
		seat->taken = seat->offered;
		report = seat->taken != c->raised;
	}
	seat->offered = c->raised;
	spin_unlock_irqrestore(&c->lock, flags);
	return report;
}
