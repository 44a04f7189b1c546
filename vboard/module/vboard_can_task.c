// SPDX-License-Identifier: GPL-2.0
/*
 * The periodic tasks of the broadcast manager; vboard_can_bcm.c tells what a
 * task does. Here is when it does it.
 *
 * Each expiry is reckoned from the one before, so that being late does not add
 * up. A frame that the interface does not take is left out and counted, with
 * one exception: an emulated machine stands still at times, or one of its
 * processors does, which a board does not. What became due while all of it
 * stood still, and what the kernel's queue refuses while the core has room, is
 * tried again for up to STALL_MAX_NS; later than that it is skipped and counted.
 *
 * The board's timer cycle: its kernel takes a little longer from one expiry to
 * the next than ival2 says, see cycle_us(). The application takes that off its
 * intervals beforehand, so periods on the bus are what the host asked for.
 *
 * Control files:
 *   tasks  one line for each task that is there (columns: see its head)
 *   cycle  "on" or "off", may be written: whether the timer cycle is added
 */
#include <linux/can/core.h>
#include <linux/can/skb.h>
#include <linux/module.h>
#include <linux/slab.h>

#include "vboard_can_bcm.h"

#define STALL_MIN_NS (2 * NSEC_PER_MSEC)	/* a timer as late as this tells of a standstill */
#define STALL_MAX_NS NSEC_PER_SEC
#define RETRY_NS (500 * NSEC_PER_USEC)
#define BATCH_MAX 64		/* due frames in a row, so that nobody else has to wait long */

static LIST_HEAD(all_tasks);
static DEFINE_SPINLOCK(all_tasks_lock);	/* taken before a task's lock */
static bool cycle = true;

/* ---- the timer of a task ------------------------------------------------------ */

/*
 * What the board's timer cycle adds to an interval, in microseconds, as
 * measured there. FD frames cost it more, by their length.
 */
static u32 cycle_us(const struct bcm_task *task)
{
	static const struct {
		u8 len_max, below_1_s, below_2_s;
	} fd_cycles[] = {
		{ 0, 18, 7 }, { 4, 19, 7 }, { 12, 20, 8 }, { 16, 21, 10 },
		{ 24, 22, 11 }, { 32, 24, 13 }, { 48, 27, 16 }, { 64, 30, 19 },
	};
	bool short_one = task->ival2_ns < NSEC_PER_SEC;
	size_t i = 0;

	if (!READ_ONCE(cycle) || task->ival2_ns >= 2 * NSEC_PER_SEC)
		return 0;
	if (!task->fd)
		return short_one ? 20 : 8;
	while (task->frames[0].len > fd_cycles[i].len_max)
		i++;
	return short_one ? fd_cycles[i].below_1_s : fd_cycles[i].below_2_s;
}

int bcm_send_frame(struct sock *sk, int ifindex, const struct canfd_frame *frame, bool fd)
{
	size_t size = fd ? CANFD_MTU : CAN_MTU;
	struct net_device *dev = dev_get_by_index(sock_net(sk), ifindex);
	struct sk_buff *skb;
	int err = -ENOMEM;

	if (!dev)
		return -ENODEV;
	skb = alloc_skb(sizeof(struct can_skb_priv) + size, GFP_ATOMIC);
	if (skb) {
		can_skb_reserve(skb);
		can_skb_prv(skb)->ifindex = dev->ifindex;
		can_skb_prv(skb)->skbcnt = 0;
		skb_put_data(skb, frame, size);
		skb->dev = dev;
		can_skb_set_owner(skb, sk);
		err = can_send(skb, 1);
	}
	dev_put(dev);
	return err;
}

static int send_next_locked(struct bcm_task *task)
{
	int err = bcm_send_frame(task->sk, task->ifindex, &task->frames[task->next_frame], task->fd);

	if (!err)
		task->sent++;
	return err;
}

/* From one expiry to the next once the first @count are over; 0 for none. */
static u64 period_ns(const struct bcm_task *task)
{
	return task->ival2_ns ? task->ival2_ns + (u64)cycle_us(task) * NSEC_PER_USEC : 0;
}

/* From one expiry to the next; 0 for none. */
static u64 interval_locked(struct bcm_task *task)
{
	if (task->count)
		task->count--;
	if (task->count && task->ival1_ns)
		return task->ival1_ns;
	return period_ns(task);
}

/* Whether the due frame is done with: sent, or left out. */
static bool send_due_locked(struct bcm_task *task)
{
	int err = send_next_locked(task);

	if (err == -ENOBUFS && (task->due_ns <= task->stall_end_ns ||
				!can_net_is_full(sock_net(task->sk), task->ifindex)))
		return false;
	if (err)
		task->left_out++;
	task->next_frame = (task->next_frame + 1) % task->frame_count;
	return true;
}

static void wind_locked(struct bcm_task *task, u64 at_ns)
{
	task->wound_ns = at_ns;
	hrtimer_start(&task->timer, ns_to_ktime(at_ns), HRTIMER_MODE_ABS_SOFT);
}

/* Sends what is due and winds the timer for the next expiry. */
static void run_locked(struct bcm_task *task)
{
	u64 now_ns = ktime_get_ns();
	unsigned int batch = 0;

	if (now_ns > task->wound_ns + STALL_MIN_NS)
		task->stall_end_ns = now_ns;
	while (task->running && task->due_ns <= now_ns) {
		u64 interval_ns;

		if (batch++ == BATCH_MAX) {
			wind_locked(task, now_ns + RETRY_NS);
			return;
		}
		if (now_ns > task->due_ns + STALL_MAX_NS) {
			task->skipped++;
		} else if (!send_due_locked(task)) {
			wind_locked(task, now_ns + RETRY_NS);
			return;
		}
		interval_ns = interval_locked(task);
		task->due_ns += interval_ns;
		task->running = interval_ns;
	}
	if (task->running)
		wind_locked(task, task->due_ns);
}

static enum hrtimer_restart on_timer(struct hrtimer *timer)
{
	struct bcm_task *task = container_of(timer, struct bcm_task, timer);

	spin_lock(&task->lock);
	run_locked(task);
	spin_unlock(&task->lock);
	return HRTIMER_NORESTART;
}

/* ---- a task's life ------------------------------------------------------------- */

struct bcm_task *bcm_task_make(struct sock *sk, const struct net_device *dev, canid_t can_id,
			       bool fd, u32 room)
{
	struct bcm_task *task = kzalloc(sizeof(*task), GFP_KERNEL);

	if (!task)
		return NULL;
	task->frames = kcalloc(room, sizeof(*task->frames), GFP_KERNEL);
	if (!task->frames) {
		kfree(task);
		return NULL;
	}
	task->room = room;
	task->sk = sk;
	task->ifindex = dev->ifindex;
	strscpy(task->interface, dev->name, sizeof(task->interface));
	task->can_id = can_id;
	task->fd = fd;
	spin_lock_init(&task->lock);
	hrtimer_init(&task->timer, CLOCK_MONOTONIC, HRTIMER_MODE_ABS_SOFT);
	task->timer.function = on_timer;

	spin_lock_bh(&all_tasks_lock);
	list_add_tail(&task->of_all, &all_tasks);
	spin_unlock_bh(&all_tasks_lock);
	return task;
}

static u64 interval_ns(const struct bcm_timeval *ival)
{
	return (u64)ival->tv_sec * NSEC_PER_SEC + (u64)ival->tv_usec * NSEC_PER_USEC;
}

static void set_timer_locked(struct bcm_task *task, const struct bcm_msg_head *head)
{
	task->count = head->count;
	task->ival1_ns = interval_ns(&head->ival1);
	task->ival2_ns = interval_ns(&head->ival2);
	if (!task->ival1_ns && !task->ival2_ns)
		task->running = false;
}

static void start_locked(struct bcm_task *task)
{
	task->starts++;
	task->running = true;
	task->due_ns = ktime_get_ns() + (task->count ? 0 : task->ival1_ns);
	task->wound_ns = task->due_ns;
	task->stall_end_ns = 0;
	run_locked(task);
}

void bcm_task_set(struct bcm_task *task, const struct bcm_msg_head *head,
		  const struct canfd_frame *frames)
{
	spin_lock_bh(&task->lock);
	if (task->frame_count)
		task->updates++;
	memcpy(task->frames, frames, head->nframes * sizeof(*frames));
	task->frame_count = head->nframes;
	if (head->flags & TX_RESET_MULTI_IDX || task->next_frame >= head->nframes)
		task->next_frame = 0;
	if (head->flags & SETTIMER)
		set_timer_locked(task, head);
	if (head->flags & STARTTIMER)
		start_locked(task);
	else if (head->flags & TX_ANNOUNCE)
		(void)send_next_locked(task);	/* as a due frame: left out if not taken */
	spin_unlock_bh(&task->lock);
}

void bcm_task_end(struct bcm_task *task)
{
	spin_lock_bh(&all_tasks_lock);
	list_del(&task->of_all);
	spin_unlock_bh(&all_tasks_lock);

	spin_lock_bh(&task->lock);
	task->running = false;
	spin_unlock_bh(&task->lock);
	hrtimer_cancel(&task->timer);
	kfree(task->frames);
	kfree(task);
}

/* ---- control files ------------------------------------------------------------- */

static int tasks_show(struct seq_file *to, void *owner)
{
	struct bcm_task *task;

	seq_puts(to, "# channel frame kind ival1_us ival2_us "
		     "sent starts updates left_out skipped state period_us\n");
	spin_lock_bh(&all_tasks_lock);
	list_for_each_entry(task, &all_tasks, of_all) {
		struct can_wire_frame wire = { .fd = task->fd };
		char text[CAN_TEXT_MAX];

		spin_lock(&task->lock);
		memcpy(&wire.frame, &task->frames[0], task->fd ? CANFD_MTU : CAN_MTU);
		can_frame_text(text, &wire);
		seq_printf(to, "%s %s %s %llu %llu %llu %llu %llu %llu %llu %s %llu\n",
			   task->interface, text, task->fd ? "fd" : "classic",
			   task->ival1_ns / NSEC_PER_USEC, task->ival2_ns / NSEC_PER_USEC,
			   task->sent, task->starts, task->updates, task->left_out, task->skipped,
			   task->running ? "running" : "stopped",
			   div_u64(period_ns(task), NSEC_PER_USEC));
		spin_unlock(&task->lock);
	}
	spin_unlock_bh(&all_tasks_lock);
	return 0;
}

static int cycle_show(struct seq_file *to, void *owner)
{
	seq_puts(to, READ_ONCE(cycle) ? "on\n" : "off\n");
	return 0;
}

static int cycle_store(char *text, void *owner)
{
	bool wanted;

	if (kstrtobool(text, &wanted))
		return -EINVAL;
	WRITE_ONCE(cycle, wanted);
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "tasks", .show = tasks_show },
	{ .name = "cycle", .show = cycle_show, .store = cycle_store },
};

void bcm_tasks_make(struct dentry *control)
{
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
}
