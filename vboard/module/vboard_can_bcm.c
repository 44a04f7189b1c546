// SPDX-License-Identifier: GPL-2.0
/*
 * The CAN_BCM protocol of the board's kernel: periodic frames.
 *
 * socket(AF_CAN, SOCK_DGRAM, CAN_BCM), connect() to a CAN interface, and then
 * write() of a struct bcm_msg_head with the frames behind it (linux/can/bcm.h;
 * struct canfd_frame if flags have CAN_FD_FRAME). A task is known by its
 * interface, its can_id and its kind of frame.
 *
 *   TX_SETUP   makes a task or changes it; 1 to 256 frames, sent in turn.
 *     SETTIMER    count, ival1 and ival2 are taken over; both intervals 0 stop it
 *     STARTTIMER  starts it from the begin. With count 0, the first frame goes
 *                 after ival1 (at once for 0), and then one each ival2: this is
 *                 what the board's kernel is made for. With count n, the first
 *                 one goes at once, n - 1 more each ival1, and then one each ival2.
 *                 With an ival2 of 0 it ends there.
 *     Without STARTTIMER, a running task goes on with the new frames, and
 *     with the new intervals from its next expiry on.
 *     TX_ANNOUNCE, TX_CP_CAN_ID and TX_RESET_MULTI_IDX as in linux/can/bcm.h.
 *   TX_DELETE  ends the task
 *   TX_SEND    sends one frame now
 *
 * Reading the state of tasks, notifications and reception are not there.
 *
 * EINVAL for a length that does not fit, more data than the kind of frame
 * holds, an operation or a task that is not there; E2BIG for more frames than
 * the task began with; ENOTCONN before connect(); ENODEV if connected to no
 * interface. A due frame that the interface does not take, because it is
 * down or its queue is full, is left out and the task goes on. Tasks end with
 * their socket and with their interface. vboard_can_task.c tells of their time.
 *
 * Control file:
 *   bcm_refuse  "off" or an errno: what each write to a CAN_BCM socket fails with
 */
#include <linux/can/core.h>
#include <linux/if_arp.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/slab.h>

#include "vboard_can_bcm.h"

#define FRAMES_MAX 256
#define IVAL_SECONDS_MAX (400 * 24 * 60 * 60)
#define NAME_MIN offsetofend(struct sockaddr_can, can_ifindex)

struct bcm_sock {
	struct sock sk;			/* has to come first */
	struct list_head of_all;	/* guarded by all_sockets_lock */
	bool bound;
	int ifindex;			/* 0: none */
	struct list_head tasks;
};

static LIST_HEAD(all_sockets);
static DEFINE_MUTEX(all_sockets_lock);	/* taken before a socket's lock */
static int refusal;			/* errno, or 0 */

static struct bcm_sock *bcm_sk(const struct sock *sk)
{
	return (struct bcm_sock *)sk;
}

/* ---- messages: called with the socket's lock held ----------------------------------- */

static struct bcm_task *find_task(struct bcm_sock *bs, const struct bcm_msg_head *head, int ifindex)
{
	struct bcm_task *task;

	list_for_each_entry(task, &bs->tasks, of_socket)
		if (task->can_id == head->can_id && task->ifindex == ifindex &&
		    task->fd == !!(head->flags & CAN_FD_FRAME))
			return task;
	return NULL;
}

static void end_task(struct bcm_task *task)
{
	list_del(&task->of_socket);
	bcm_task_end(task);
}

static bool is_interval(const struct bcm_timeval *ival)
{
	return ival->tv_sec >= 0 && ival->tv_sec <= IVAL_SECONDS_MAX &&
	       ival->tv_usec >= 0 && ival->tv_usec < USEC_PER_SEC;
}

/* Reads @n frames of the message; a result below 0 is the error. */
static int read_frames(struct canfd_frame *to, unsigned int n, bool fd, struct msghdr *message)
{
	unsigned int i;
	int err;

	for (i = 0; i < n; i++) {
		err = memcpy_from_msg(&to[i], message, fd ? CANFD_MTU : CAN_MTU);
		if (err)
			return err;
		if (to[i].len > (fd ? CANFD_MAX_DLEN : CAN_MAX_DLEN))
			return -EINVAL;
	}
	return 0;
}

static int tx_setup(struct bcm_sock *bs, const struct bcm_msg_head *head, struct net_device *dev,
		    struct msghdr *message)
{
	bool fd = head->flags & CAN_FD_FRAME;
	struct bcm_task *task = find_task(bs, head, dev->ifindex);
	struct canfd_frame *frames;
	u32 i;
	int err;

	if (!head->nframes || head->nframes > FRAMES_MAX)
		return -EINVAL;
	if (head->flags & SETTIMER && (!is_interval(&head->ival1) || !is_interval(&head->ival2)))
		return -EINVAL;
	if (task && head->nframes > task->room)
		return -E2BIG;

	frames = kcalloc(head->nframes, sizeof(*frames), GFP_KERNEL);
	if (!frames)
		return -ENOMEM;
	err = read_frames(frames, head->nframes, fd, message);
	if (err)
		goto free_frames;
	if (head->flags & TX_CP_CAN_ID)
		for (i = 0; i < head->nframes; i++)
			frames[i].can_id = head->can_id;

	if (!task) {
		task = bcm_task_make(&bs->sk, dev, head->can_id, fd, head->nframes);
		if (!task) {
			err = -ENOMEM;
			goto free_frames;
		}
		list_add_tail(&task->of_socket, &bs->tasks);
	}
	bcm_task_set(task, head, frames);

free_frames:
	kfree(frames);
	return err;
}

static int tx_delete(struct bcm_sock *bs, const struct bcm_msg_head *head, int ifindex)
{
	struct bcm_task *task = find_task(bs, head, ifindex);

	if (!task)
		return -EINVAL;
	end_task(task);
	return 0;
}

static int tx_send(struct bcm_sock *bs, const struct bcm_msg_head *head, int ifindex,
		   struct msghdr *message)
{
	bool fd = head->flags & CAN_FD_FRAME;
	struct canfd_frame frame;
	int err = read_frames(&frame, 1, fd, message);

	if (err)
		return err;
	local_bh_disable();
	err = bcm_send_frame(&bs->sk, ifindex, &frame, fd);
	local_bh_enable();
	return err;
}

/* ---- the socket --------------------------------------------------------------------- */

/* The interface that a message is for, to be put, or NULL. */
static struct net_device *target_of(struct bcm_sock *bs, const struct msghdr *message)
{
	const struct sockaddr_can *name = message->msg_name;
	int ifindex = bs->ifindex;
	struct net_device *dev;

	if (!ifindex && name && message->msg_namelen >= NAME_MIN && name->can_family == AF_CAN)
		ifindex = name->can_ifindex;
	dev = ifindex ? dev_get_by_index(sock_net(&bs->sk), ifindex) : NULL;
	if (dev && dev->type != ARPHRD_CAN) {
		dev_put(dev);
		dev = NULL;
	}
	return dev;
}

static int bcm_sendmsg(struct socket *sock, struct msghdr *message, size_t size)
{
	struct bcm_sock *bs = bcm_sk(sock->sk);
	struct bcm_msg_head head;
	struct net_device *dev;
	size_t frame_size;
	int err;

	err = READ_ONCE(refusal);
	if (err)
		return -err;
	if (size < sizeof(head))
		return -EINVAL;
	err = memcpy_from_msg(&head, message, sizeof(head));
	if (err)
		return err;
	frame_size = head.flags & CAN_FD_FRAME ? CANFD_MTU : CAN_MTU;
	if ((size - sizeof(head)) % frame_size)
		return -EINVAL;

	lock_sock(sock->sk);
	err = -ENOTCONN;
	if (!bs->bound)
		goto release;
	err = -ENODEV;
	dev = target_of(bs, message);
	if (!dev)
		goto release;
	switch (head.opcode) {
	case TX_SETUP:
		err = tx_setup(bs, &head, dev, message) ?:
		      (int)(sizeof(head) + head.nframes * frame_size);
		break;
	case TX_DELETE:
		err = tx_delete(bs, &head, dev->ifindex) ?: (int)sizeof(head);
		break;
	case TX_SEND:
		err = -EINVAL;
		if (head.nframes == 1 && size == sizeof(head) + frame_size)
			err = tx_send(bs, &head, dev->ifindex, message) ?: (int)size;
		break;
	default:
		err = -EINVAL;
		break;
	}
	dev_put(dev);
release:
	release_sock(sock->sk);
	return err;
}

static int bcm_connect(struct socket *sock, struct sockaddr *to, int len, int flags)
{
	const struct sockaddr_can *name = (const struct sockaddr_can *)to;
	struct bcm_sock *bs = bcm_sk(sock->sk);
	struct net_device *dev = NULL;
	int err = 0;

	if (len < (int)NAME_MIN)
		return -EINVAL;
	lock_sock(sock->sk);
	if (bs->bound) {
		err = -EISCONN;
	} else if (name->can_ifindex) {
		dev = dev_get_by_index(sock_net(sock->sk), name->can_ifindex);
		if (!dev || dev->type != ARPHRD_CAN)
			err = -ENODEV;
	}
	if (!err) {
		bs->ifindex = name->can_ifindex;
		bs->bound = true;
	}
	dev_put(dev);
	release_sock(sock->sk);
	return err;
}

static int bcm_init(struct sock *sk)
{
	struct bcm_sock *bs = bcm_sk(sk);

	bs->bound = false;
	bs->ifindex = 0;
	INIT_LIST_HEAD(&bs->tasks);
	mutex_lock(&all_sockets_lock);
	list_add_tail(&bs->of_all, &all_sockets);
	mutex_unlock(&all_sockets_lock);
	return 0;
}

static int bcm_release(struct socket *sock)
{
	struct sock *sk = sock->sk;
	struct bcm_task *task, *next;

	if (!sk)
		return 0;
	mutex_lock(&all_sockets_lock);
	list_del(&bcm_sk(sk)->of_all);
	mutex_unlock(&all_sockets_lock);

	lock_sock(sk);
	list_for_each_entry_safe(task, next, &bcm_sk(sk)->tasks, of_socket)
		end_task(task);
	sock_orphan(sk);
	sock->sk = NULL;
	release_sock(sk);
	sock_put(sk);
	return 0;
}

/* An ioctl of ours there is none: those of interfaces are asked for next. */
static int bcm_ioctl(struct socket *sock, unsigned int command, unsigned long argument)
{
	return -ENOIOCTLCMD;
}

static const struct proto_ops bcm_ops = {
	.family = PF_CAN,
	.owner = THIS_MODULE,
	.release = bcm_release,
	.bind = sock_no_bind,
	.connect = bcm_connect,
	.socketpair = sock_no_socketpair,
	.accept = sock_no_accept,
	.getname = sock_no_getname,
	.poll = datagram_poll,
	.ioctl = bcm_ioctl,
	.gettstamp = sock_gettstamp,
	.listen = sock_no_listen,
	.shutdown = sock_no_shutdown,
	.sendmsg = bcm_sendmsg,
	.recvmsg = sock_no_recvmsg,
	.mmap = sock_no_mmap,
	.sendpage = sock_no_sendpage,
};

static struct proto bcm_proto = {
	.name = "CAN_BCM",
	.owner = THIS_MODULE,
	.obj_size = sizeof(struct bcm_sock),
	.init = bcm_init,
};

static const struct can_proto bcm_can_proto = {
	.type = SOCK_DGRAM,
	.protocol = CAN_BCM,
	.ops = &bcm_ops,
	.prot = &bcm_proto,
};

bool can_bcm_owns(const struct sk_buff *skb)
{
	return skb->sk && skb->sk->sk_prot == &bcm_proto;
}

/* ---- interfaces that go ------------------------------------------------------------- */

static void leave_interface(struct bcm_sock *bs, int ifindex, bool for_good)
{
	struct bcm_task *task, *next;
	struct sock *sk = &bs->sk;

	lock_sock(sk);
	if (for_good)
		list_for_each_entry_safe(task, next, &bs->tasks, of_socket)
			if (task->ifindex == ifindex)
				end_task(task);
	if (bs->bound && bs->ifindex == ifindex) {
		if (for_good) {
			bs->bound = false;
			bs->ifindex = 0;
		}
		sk->sk_err = for_good ? ENODEV : ENETDOWN;
		if (!sock_flag(sk, SOCK_DEAD))
			sk_error_report(sk);
	}
	release_sock(sk);
}

static int on_interface(struct notifier_block *block, unsigned long event, void *info)
{
	struct net_device *dev = netdev_notifier_info_to_dev(info);
	struct bcm_sock *bs;

	if (dev->type != ARPHRD_CAN || (event != NETDEV_UNREGISTER && event != NETDEV_DOWN))
		return NOTIFY_DONE;
	mutex_lock(&all_sockets_lock);
	list_for_each_entry(bs, &all_sockets, of_all)
		if (net_eq(dev_net(dev), sock_net(&bs->sk)))
			leave_interface(bs, dev->ifindex, event == NETDEV_UNREGISTER);
	mutex_unlock(&all_sockets_lock);
	return NOTIFY_DONE;
}

static struct notifier_block interface_notifier = { .notifier_call = on_interface };

/* ---- control file ------------------------------------------------------------------- */

static int refuse_show(struct seq_file *to, void *owner)
{
	int err = READ_ONCE(refusal);

	if (err)
		seq_printf(to, "%d\n", err);
	else
		seq_puts(to, "off\n");
	return 0;
}

static int refuse_store(char *text, void *owner)
{
	int err = 0;

	if (strcmp(text, "off") && (kstrtoint(text, 10, &err) || err < 1 || err > 133))
		return -EINVAL;
	WRITE_ONCE(refusal, err);
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "bcm_refuse", .show = refuse_show, .store = refuse_store },
};

int can_bcm_make(struct dentry *control)
{
	int err = can_proto_register(&bcm_can_proto);

	if (err) {
		pr_err("vboard: CAN_BCM is taken: unload can-bcm first\n");
		return err;
	}
	err = register_netdevice_notifier(&interface_notifier);
	if (err) {
		can_proto_unregister(&bcm_can_proto);
		return err;
	}
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	bcm_tasks_make(control);
	return 0;
}

/* No socket is open any more: each one holds the module. */
void can_bcm_free(void)
{
	unregister_netdevice_notifier(&interface_notifier);
	can_proto_unregister(&bcm_can_proto);
}
