// SPDX-License-Identifier: GPL-2.0
/*
 * LIN0 and LIN1: a LIN channel as a net device of CAN type, raised and lowered
 * as CAN devices are. Its bit rate and role come from /dev/LIN<n>_CHAR.
 *
 * What is sent has to be a canfd_frame of 72 bytes: can_id is the protected
 * identifier, without flags, and the 40 bytes of data are a lin_tx_message.
 * Anything else is dropped and counted as refused. Of the message,
 *
 *   ctrl_type    COMMAND_DETIL and FULL_DETIL: sync and time_detil count
 *   is_active    whether there is a response
 *   pid          is not looked at, nor are checksum, is_event_frame and
 *                event_associated_id
 *   dlc          of a response 1 to 8; of a header alone, how long the channel
 *                waits for another's response, more than 8 counting as 8
 *   sync         as it is; 0x55 without details
 *   time_detil   in bits, 0 meaning the usual: break (13), delimiter (1), and no
 *                space between sync and identifier, before each byte, and before
 *                the checksum; rates in bit/s, 1000 to 20000, 0: the channel's, and
 *                of a responder's response, the header's
 *
 * To a commander it is a frame to send, at once or when the bus is free:
 * ONLY_COMMAND and COMMAND_DETIL a header, the others a header with a response
 * if is_active says so. To a responder it is the response to an identifier,
 * WITH_RESPONSE or FULL_DETIL: set if is_active says so, and else dropped. Headers
 * are refused by a responder, and all by a channel without a bit rate.
 *
 * Lowering the device breaks off what it sends and drops what waits; its
 * configuration and its responses stay.
 *
 * What the device receives are news of the bus, a packet for each new record
 * (vboard_lin_records.c) while open_rx is 1. Captures get them; nobody else does.
 * The protocol is ETH_P_CAN, the timestamp the device time of the event's end:
 *
 *    0   6  0
 *    6   4  identifier as it was received, little-endian; 0 for a wake-up
 *   10   1  2, the bytes of the payload
 *   11   1  0
 *   12   1  direction
 *   13   1  channel
 *   14   1  index of the record, 0 to 99
 *   15   1  direction: 0 sent by this channel, 1 received. It is that of the
 *           response or, where there is none, of the header or the pulse
 */
#include <linux/can.h>
#include <linux/can/dev.h>
#include <linux/if_ether.h>
#include <linux/module.h>
#include <linux/rtnetlink.h>

#include "vboard_lin.h"

#define BREAK_BITS 13
#define DELIMITER_BITS 1
#define SYNC_BYTE 0x55

struct lin_net_priv {
	struct can_priv can;		/* has to come first */
	struct lin_channel *channel;
};

struct packet {
	u8 unused[6];
	__le32 id;
	u8 length;
	u8 flags;
	u8 head_direction;
	u8 channel;
	u8 record;			/* the payload begins here */
	u8 direction;
} __packed;
static_assert(sizeof(struct packet) == 16);

#define PAYLOAD 2

static struct lin_channel *channel_of(const struct net_device *dev)
{
	return ((struct lin_net_priv *)netdev_priv(dev))->channel;
}

/* ---- what the application sends ----------------------------------------------- */

static bool has_details(const struct lin_tx_message *message)
{
	u32 type = le32_to_cpu(message->flag.ctrl_type);

	return type == COMMAND_DETIL || type == FULL_DETIL;
}

static bool has_response(const struct lin_tx_message *message)
{
	u32 type = le32_to_cpu(message->flag.ctrl_type);

	return type == WITH_RESPONSE || type == FULL_DETIL;
}

static bool is_good_detail(__le32 rate)
{
	return !rate || lin_rate_is_good(le32_to_cpu(rate));
}

static bool is_good(const struct lin_tx_message *message)
{
	const struct lin_tx_frame *frame = &message->lin_frame;

	if (le32_to_cpu(message->flag.ctrl_type) > FULL_DETIL)
		return false;
	if (has_response(message) && message->flag.is_active &&
	    (!frame->dlc || frame->dlc > LIN_DATA_MAX))
		return false;
	return !has_details(message) || (is_good_detail(message->time_detil.header_baurate) &&
					 is_good_detail(message->time_detil.response_baurate));
}

static struct lin_response response_of(const struct lin_tx_message *message)
{
	const struct lin_tx_detil *detail = &message->time_detil;
	struct lin_response response = {
		.is_set = has_response(message) && message->flag.is_active,
	};

	if (!response.is_set)
		return response;
	response.len = message->lin_frame.dlc;
	memcpy(response.data, message->lin_frame.data, response.len);
	if (has_details(message)) {
		memcpy(response.spaces, detail->before_data, LIN_DATA_MAX);
		response.spaces[LIN_DATA_MAX] = detail->before_checksum;
		response.rate = le32_to_cpu(detail->response_baurate);
	}
	return response;
}

static struct lin_slot slot_of(const struct lin_channel *channel, u8 pid,
			       const struct lin_tx_message *message)
{
	const struct lin_tx_detil *detail = &message->time_detil;
	struct lin_slot slot = {
		.pid = pid,
		.sync = SYNC_BYTE,
		.expected = min_t(u8, message->lin_frame.dlc, LIN_DATA_MAX),
		.timing = {
			.break_bits = BREAK_BITS,
			.delimiter_bits = DELIMITER_BITS,
			.header_rate = channel->bitrate,
		},
		.response = response_of(message),
	};

	if (has_details(message)) {
		slot.sync = message->lin_frame.sync;
		slot.timing.break_bits = detail->break_field_length ?: BREAK_BITS;
		slot.timing.delimiter_bits = detail->break_Del_length ?: DELIMITER_BITS;
		slot.timing.pid_space = detail->inter_byte;
		slot.timing.header_rate = le32_to_cpu(detail->header_baurate) ?: channel->bitrate;
		slot.response.rate = slot.response.rate ?: channel->bitrate;
	}
	return slot;
}

struct lin_slot lin_net_header(u8 id, u32 rate)
{
	return (struct lin_slot){
		.pid = lin_pid(id),
		.sync = SYNC_BYTE,
		.expected = LIN_DATA_MAX,
		.timing = {
			.break_bits = BREAK_BITS,
			.delimiter_bits = DELIMITER_BITS,
			.header_rate = rate,
		},
	};
}

/* False when the message makes no sense. */
static bool take(struct lin_channel *channel, u8 pid, const struct lin_tx_message *message)
{
	struct lin_slot slot;

	if (!channel->up || !channel->bitrate || !is_good(message))
		return false;
	if (channel->mode == RESPONDER) {
		if (has_response(message))
			channel->responses[pid % LIN_IDS] = response_of(message);
		return has_response(message);
	}
	slot = slot_of(channel, pid, message);
	return lin_bus_push(&channel->own, &slot);
}

static netdev_tx_t lin_net_xmit(struct sk_buff *skb, struct net_device *dev)
{
	struct lin_channel *channel = channel_of(dev);
	const struct canfd_frame *frame = (const struct canfd_frame *)skb->data;
	bool taken;

	if (can_dropped_invalid_skb(dev, skb))
		return NETDEV_TX_OK;
	lin_change_begin();
	taken = can_is_canfd_skb(skb) && frame->can_id <= U8_MAX &&
		frame->len == sizeof(struct lin_tx_message) &&
		take(channel, frame->can_id, (const struct lin_tx_message *)frame->data);
	if (taken) {
		dev->stats.tx_packets++;
		dev->stats.tx_bytes += CANFD_MTU;
	} else {
		dev->stats.tx_dropped++;
		channel->refused++;
	}
	if (lin_bus_is_full(&channel->own))
		netif_stop_queue(dev);
	lin_change_end();
	if (taken)
		consume_skb(skb);
	else
		kfree_skb(skb);
	return NETDEV_TX_OK;
}

void lin_net_wake(struct lin_channel *channel)
{
	if (channel->up)
		netif_wake_queue(channel->dev);
}

/* ---- news of the bus ------------------------------------------------------------ */

void lin_net_tell(struct lin_channel *channel, u8 pid, u8 record, bool received, u64 time_ns)
{
	struct net_device *dev = channel->dev;
	struct sk_buff *skb = NULL;
	struct packet *packet;

	if (!can_uplink_is_full(&channel->uplink))
		skb = alloc_skb(sizeof(*packet), GFP_ATOMIC);
	if (!skb) {
		dev->stats.rx_dropped++;
		return;
	}
	skb->dev = dev;
	skb->protocol = htons(ETH_P_CAN);
	skb->ip_summed = CHECKSUM_UNNECESSARY;
	skb_reset_mac_header(skb);
	/* The kernel puts the wall clock in the place of a 0. */
	skb->tstamp = ns_to_ktime(time_ns ?: 1);
	packet = skb_put_zero(skb, sizeof(*packet));
	packet->id = cpu_to_le32(pid);
	packet->length = PAYLOAD;
	packet->head_direction = received;
	packet->channel = channel->index;
	packet->record = record;
	packet->direction = received;
	dev->stats.rx_packets++;
	dev->stats.rx_bytes += skb->len;
	channel->told++;
	can_uplink_pass(&channel->uplink, skb);
}

/* Captures have had the packet by now; to the CAN protocols it would be a bad frame. */
static rx_handler_result_t lin_net_received(struct sk_buff **skb)
{
	consume_skb(*skb);
	return RX_HANDLER_CONSUMED;
}

/* ---- the net device --------------------------------------------------------------- */

/* Not open_candev(): it refuses a device without a CAN bit timing. */
static int lin_net_open(struct net_device *dev)
{
	struct lin_channel *channel = channel_of(dev);
	struct can_priv *priv = netdev_priv(dev);

	if (!netif_carrier_ok(dev))
		netif_carrier_on(dev);
	can_uplink_open(&channel->uplink);
	lin_change_begin();
	channel->up = true;
	lin_change_end();
	priv->state = CAN_STATE_ERROR_ACTIVE;	/* what a CAN device that is up shows */
	netif_start_queue(dev);
	return 0;
}

static int lin_net_stop(struct net_device *dev)
{
	struct lin_channel *channel = channel_of(dev);
	struct can_priv *priv = netdev_priv(dev);

	netif_stop_queue(dev);
	lin_change_begin();
	channel->up = false;
	lin_bus_leave(channel);
	lin_change_end();
	priv->state = CAN_STATE_STOPPED;
	can_uplink_close(&channel->uplink);
	close_candev(dev);
	return 0;
}

static const struct net_device_ops lin_net_ops = {
	.ndo_open = lin_net_open,
	.ndo_stop = lin_net_stop,
	.ndo_start_xmit = lin_net_xmit,
	.ndo_change_mtu = can_change_mtu,
};

static void unregister(struct net_device *dev)
{
	rtnl_lock();
	dev_close(dev);
	netdev_rx_handler_unregister(dev);
	unregister_netdevice(dev);
	rtnl_unlock();
}

int lin_net_make(struct lin_channel *channel)
{
	struct net_device *dev = alloc_candev(sizeof(struct lin_net_priv), 0);
	int err;

	if (!dev)
		return -ENOMEM;
	((struct lin_net_priv *)netdev_priv(dev))->channel = channel;
	err = can_set_static_ctrlmode(dev, CAN_CTRLMODE_FD);
	if (err)
		goto free_dev;
	dev->netdev_ops = &lin_net_ops;
	dev->flags |= IFF_ECHO;		/* so that the kernel makes no echo of what is sent */
	SET_NETDEV_DEV(dev, &vboard_parent->dev);
	snprintf(dev->name, sizeof(dev->name), "LIN%u", channel->index);
	can_uplink_make(&channel->uplink, dev);
	channel->dev = dev;
	err = register_candev(dev);
	if (err)
		goto free_uplink;
	rtnl_lock();
	err = netdev_rx_handler_register(dev, lin_net_received, NULL);
	rtnl_unlock();
	if (err)
		goto unregister;
	return 0;

unregister:
	unregister(dev);
free_uplink:
	can_uplink_free(&channel->uplink);
free_dev:
	free_candev(dev);
	return err;
}

void lin_net_free(struct lin_channel *channel)
{
	unregister(channel->dev);
	can_uplink_free(&channel->uplink);
	free_candev(channel->dev);
}
