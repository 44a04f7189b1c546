// SPDX-License-Identifier: GPL-2.0
/*
 * can0 to can5: the protocol core of a channel as a CAN net device.
 *
 * Bit timing and listen-only mode come from the core's registers, which the
 * application and /dev/norvane_can<n> write; "ip -details link" shows both.
 * Raising the device enables the core with whatever stands in its registers;
 * without a timing it is on no bus and its frames wait. Lowering it disables
 * the core and drops the frames that wait.
 *
 * CAN FD is always on. The error counters start at 0 each time the device is
 * raised. A listening core drops what it is given to send. A core in
 * configuration mode keeps it.
 *
 * The queue of frames in front of the core holds QUEUE_FRAMES. What a socket
 * sends beyond that is lost, and the application cannot tell its host.
 */
#include <linux/module.h>
#include <linux/rtnetlink.h>

#include "vboard_can.h"

#define ERROR_WARNING 96
#define ERROR_PASSIVE 128
#define BUS_OFF 256
#define QUEUE_FRAMES 1000	/* a burst of the host has up to 255 */

struct can_net_priv {
	struct can_priv can;		/* has to come first */
	struct can_channel *channel;
};

static struct can_channel *channel_of(const struct net_device *dev)
{
	return ((struct can_net_priv *)netdev_priv(dev))->channel;
}

/* ---- towards the kernel -------------------------------------------------- */

void can_net_deliver(struct can_channel *channel, const struct can_wire_frame *wire, bool passive)
{
	struct net_device_stats *stats = &channel->dev->stats;
	struct canfd_frame *fd;
	struct can_frame *classic;
	struct sk_buff *skb = NULL;

	channel->received++;
	if (!can_uplink_is_full(&channel->uplink))
		skb = wire->fd ? alloc_canfd_skb(channel->dev, &fd) :
				 alloc_can_skb(channel->dev, &classic);
	if (!skb) {
		stats->rx_dropped++;
		return;
	}
	if (wire->fd) {
		fd->can_id = wire->frame.can_id;
		fd->len = wire->frame.len;
		fd->flags |= wire->frame.flags & (CANFD_BRS | CANFD_ESI);
		fd->flags |= passive ? CANFD_ESI : 0;
		memcpy(fd->data, wire->frame.data, fd->len);
	} else {
		classic->can_id = wire->frame.can_id;
		classic->len = wire->frame.len;
		if (!(classic->can_id & CAN_RTR_FLAG))
			memcpy(classic->data, wire->frame.data, classic->len);
	}
	stats->rx_packets++;
	if (!(wire->frame.can_id & CAN_RTR_FLAG))
		stats->rx_bytes += wire->frame.len;
	can_uplink_pass(&channel->uplink, skb);
}

void can_net_sent(struct can_channel *channel, struct can_slot *slot)
{
	struct net_device_stats *stats = &channel->dev->stats;

	stats->tx_packets++;
	if (!(slot->wire.frame.can_id & CAN_RTR_FLAG))
		stats->tx_bytes += slot->wire.frame.len;
	if (slot->echo)
		can_uplink_pass(&channel->uplink, slot->echo);
	netif_wake_queue(channel->dev);
}

void can_net_dropped(struct can_channel *channel, struct can_slot *slot)
{
	channel->dev->stats.tx_aborted_errors++;
	kfree_skb(slot->echo);
	if (channel->up)
		netif_wake_queue(channel->dev);
}

/* ---- error counters -------------------------------------------------------- */

static enum can_state state_of(unsigned int errors)
{
	if (errors >= BUS_OFF)
		return CAN_STATE_BUS_OFF;
	if (errors >= ERROR_PASSIVE)
		return CAN_STATE_ERROR_PASSIVE;
	return errors >= ERROR_WARNING ? CAN_STATE_ERROR_WARNING : CAN_STATE_ERROR_ACTIVE;
}

void can_net_errors_changed(struct can_channel *channel)
{
	struct can_priv *priv = netdev_priv(channel->dev);
	enum can_state tx = state_of(channel->tx_errors);
	enum can_state rx = state_of(channel->rx_errors);
	struct can_frame *frame;
	struct sk_buff *skb;

	if (!channel->up || priv->state == max(tx, rx))
		return;
	skb = alloc_can_err_skb(channel->dev, &frame);
	can_change_state(channel->dev, skb ? frame : NULL, tx, rx);
	if (priv->state == CAN_STATE_BUS_OFF) {
		channel->bus_off = true;
		can_errors_bus_off(channel);
		can_bus_off(channel->dev);
	}
	if (!skb)
		return;
	if (priv->state != CAN_STATE_BUS_OFF) {
		frame->can_id |= CAN_ERR_CNT;
		frame->data[6] = channel->tx_errors;
		frame->data[7] = channel->rx_errors;
	}
	can_uplink_pass(&channel->uplink, skb);
}

static int can_net_get_berr_counter(const struct net_device *dev, struct can_berr_counter *to)
{
	struct can_channel *channel = channel_of(dev);

	spin_lock_bh(&can_lock);
	to->txerr = channel->tx_errors;
	to->rxerr = channel->rx_errors;
	spin_unlock_bh(&can_lock);
	return 0;
}

/* ---- the net device ---------------------------------------------------------- */

static netdev_tx_t can_net_xmit(struct sk_buff *skb, struct net_device *dev)
{
	struct can_channel *channel = channel_of(dev);
	struct can_slot slot = {};

	if (can_dropped_invalid_skb(dev, skb))
		return NETDEV_TX_OK;
	if (READ_ONCE(channel->listening)) {
		dev->stats.tx_dropped++;
		kfree_skb(skb);
		return NETDEV_TX_OK;
	}

	slot.wire.fd = can_is_canfd_skb(skb);
	memcpy(&slot.wire.frame, skb->data, skb->len);
	if (slot.wire.fd) {
		struct canfd_frame *frame = &slot.wire.frame;
		u8 len = canfd_sanitize_len(frame->len);

		/* The wire knows 16 lengths; the core fills up with zeros. */
		memset(frame->data + frame->len, 0, len - frame->len);
		frame->len = len;
		frame->can_id &= ~CAN_RTR_FLAG;
	}
	slot.origin = can_bcm_owns(skb) ? CAN_ORIGIN_BCM : CAN_ORIGIN_RAW;
	skb_tx_timestamp(skb);
	if (skb->pkt_type == PACKET_LOOPBACK) {
		slot.echo = can_create_echo_skb(skb);
		if (!slot.echo) {
			dev->stats.tx_dropped++;
			return NETDEV_TX_OK;
		}
		slot.echo->pkt_type = PACKET_BROADCAST;
		slot.echo->ip_summed = CHECKSUM_UNNECESSARY;
		slot.echo->dev = dev;
	} else {
		consume_skb(skb);
	}
	if (!can_bus_queue(channel, &slot)) {
		dev->stats.tx_dropped++;
		kfree_skb(slot.echo);
	}
	return NETDEV_TX_OK;
}

/* Back on the bus, with the counters at 0. */
static void rejoin(struct can_channel *channel)
{
	struct can_priv *priv = netdev_priv(channel->dev);

	channel->bus_off = false;
	channel->tx_errors = 0;
	channel->rx_errors = 0;
	priv->state = CAN_STATE_ERROR_ACTIVE;
}

/*
 * Not open_candev(): it refuses a device without bit timing, and a data rate
 * below the nominal one, and the core knows no such rules.
 */
static int can_net_open(struct net_device *dev)
{
	struct can_channel *channel = channel_of(dev);

	if (!netif_carrier_ok(dev))
		netif_carrier_on(dev);
	can_uplink_open(&channel->uplink);
	can_regs_enable(channel->index, true);
	can_regs_apply();
	can_change_begin();
	channel->up = true;
	rejoin(channel);
	can_change_end();
	netif_start_queue(dev);
	return 0;
}

static int can_net_stop(struct net_device *dev)
{
	struct can_channel *channel = channel_of(dev);
	struct can_priv *priv = netdev_priv(dev);

	netif_stop_queue(dev);
	can_change_begin();
	channel->up = false;
	can_drop_frames(channel);
	priv->state = CAN_STATE_STOPPED;
	can_change_end();
	can_regs_enable(channel->index, false);
	can_regs_apply();
	can_uplink_close(&channel->uplink);
	close_candev(dev);
	return 0;
}

/* A restart after bus-off. */
static int can_net_set_mode(struct net_device *dev, enum can_mode mode)
{
	if (mode != CAN_MODE_START)
		return -EOPNOTSUPP;
	can_change_begin();
	rejoin(channel_of(dev));
	can_change_end();
	netif_wake_queue(dev);
	return 0;
}

static const struct net_device_ops can_net_ops = {
	.ndo_open = can_net_open,
	.ndo_stop = can_net_stop,
	.ndo_start_xmit = can_net_xmit,
	.ndo_change_mtu = can_change_mtu,
};

bool can_net_is_full(struct net *net, int ifindex)
{
	struct net_device *dev = dev_get_by_index(net, ifindex);
	bool full = dev && dev->netdev_ops == &can_net_ops && can_bus_is_full(channel_of(dev));

	dev_put(dev);
	return full;
}

struct can_channel *can_net_make(unsigned int index)
{
	struct can_channel *channel = kvzalloc(sizeof(*channel), GFP_KERNEL);
	struct net_device *dev = alloc_candev(sizeof(struct can_net_priv), 0);
	struct can_priv *priv;

	if (!channel || !dev)
		goto fail;
	channel->index = index;
	channel->dev = dev;

	priv = netdev_priv(dev);
	((struct can_net_priv *)priv)->channel = channel;
	priv->clock.freq = CAN_CLOCK_HZ;
	priv->do_set_mode = can_net_set_mode;
	priv->do_get_berr_counter = can_net_get_berr_counter;
	if (can_set_static_ctrlmode(dev, CAN_CTRLMODE_FD))
		goto fail;
	dev->netdev_ops = &can_net_ops;
	dev->flags |= IFF_ECHO;
	dev->tx_queue_len = QUEUE_FRAMES;
	SET_NETDEV_DEV(dev, &vboard_parent->dev);
	snprintf(dev->name, sizeof(dev->name), "can%u", index);
	can_uplink_make(&channel->uplink, dev);
	return channel;

fail:
	if (dev)
		free_candev(dev);
	kvfree(channel);
	return NULL;
}

/* Unregistered by now, or never registered. */
void can_net_free(struct can_channel *channel)
{
	can_uplink_free(&channel->uplink);
	free_candev(channel->dev);
	kvfree(channel);
}
