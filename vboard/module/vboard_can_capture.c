// SPDX-License-Identifier: GPL-2.0
/*
 * What the port cores tell of the wires: a received packet at ncan<n> for each
 * frame that channel n has sent or received while ncan<n> was up, and for each
 * bunch of errors that it has seen. Packet sockets and captures get them;
 * nobody else does, the CAN protocols neither.
 *
 * The packet's protocol is ETH_P_CAN, or ETH_P_CANFD for an FD frame. Its
 * timestamp is the device time of the end of frame (or of the last error's end):
 * so nanoseconds since the counter was at 0, not of the wall clock. Bytes:
 *
 *    0   6  0
 *    6   4  identifier, little-endian, with flags: bit 29 errors, bit 30 remote
 *           frame, bit 31 extended
 *   10   1  bytes of the payload
 *   11   1  of an FD frame, bit 0: data at the data rate, bit 1: sender error-passive
 *   12   1  1 received, 0 sent by this channel
 *   13   1  channel
 *   14  ..  payload; of a remote frame as many zeros as it asks for
 *
 * Of errors the payload is 2 bytes: the first slot in the channel's error ring
 * (vboard_can_errors.c) and the number of slots, which goes on at slot 0 after 255.
 *
 * Control file:
 *   packet  write "<channel> classic|fd <hex>": ncan<n> receives a packet of
 *           these bytes, whatever they say; ENETDOWN while it is down
 */
#include <linux/if_ether.h>
#include <linux/netdevice.h>

#include "vboard_can.h"

#define PACKET_HEAD 14
#define ERROR_PAYLOAD 2

#define FLAG_BRS BIT(0)
#define FLAG_ESI BIT(1)

struct packet_head {
	u8 unused[6];
	__le32 id;
	u8 length;
	u8 flags;
	u8 direction;
	u8 channel;
} __packed;
static_assert(sizeof(struct packet_head) == PACKET_HEAD);

/* A packet with room for @len bytes; NULL, and counted, when there is none. */
static struct sk_buff *make_packet(struct can_channel *channel, bool fd, size_t len, u64 time_ns)
{
	struct sk_buff *skb = NULL;

	if (!can_uplink_is_full(&channel->port_uplink))
		skb = alloc_skb(len, GFP_ATOMIC);
	if (!skb) {
		channel->port->stats.rx_dropped++;
		return NULL;
	}
	skb->dev = channel->port;
	skb->protocol = htons(fd ? ETH_P_CANFD : ETH_P_CAN);
	skb->ip_summed = CHECKSUM_UNNECESSARY;
	skb_reset_mac_header(skb);
	/* The kernel puts the wall clock in the place of a 0. */
	skb->tstamp = ns_to_ktime(time_ns ?: 1);
	return skb;
}

static void pass(struct can_channel *channel, struct sk_buff *skb)
{
	channel->port->stats.rx_packets++;
	channel->port->stats.rx_bytes += skb->len;
	can_uplink_pass(&channel->port_uplink, skb);
}

/* ---- frames ---------------------------------------------------------------- */

static u32 id_word(const struct can_wire_frame *wire)
{
	canid_t id = wire->frame.can_id;

	return id & (CAN_EFF_FLAG | CAN_RTR_FLAG |
		     (id & CAN_EFF_FLAG ? CAN_EFF_MASK : CAN_SFF_MASK));
}

static u8 flags_of(const struct can_wire_frame *wire, bool passive)
{
	u8 flags = wire->frame.flags;

	if (!wire->fd)
		return 0;
	return (flags & CANFD_BRS ? FLAG_BRS : 0) | (passive || flags & CANFD_ESI ? FLAG_ESI : 0);
}

static void tell_frame(struct can_channel *channel, const struct can_attempt *attempt,
		       bool received, u64 time_ns)
{
	const struct can_wire_frame *wire = &attempt->slot->wire;
	u8 len = wire->frame.len;
	struct packet_head *head;
	struct sk_buff *skb;

	can_errors_announce(channel);	/* they were earlier */
	skb = make_packet(channel, wire->fd, sizeof(*head) + len, time_ns);
	if (!skb)
		return;
	head = skb_put_zero(skb, sizeof(*head));
	head->id = cpu_to_le32(id_word(wire));
	head->length = len;
	head->flags = flags_of(wire, attempt->passive);
	head->direction = received;
	head->channel = channel->index;
	if (!wire->fd && wire->frame.can_id & CAN_RTR_FLAG)
		skb_put_zero(skb, len);
	else
		skb_put_data(skb, wire->frame.data, len);
	channel->captured++;
	pass(channel, skb);
}

void can_capture_attempt(const struct can_attempt *attempt)
{
	u64 time_ns = vboard_time_at(attempt->end_ns);
	unsigned int i;

	if (attempt->result == CAN_RESULT_OK && attempt->sender->port_up)
		tell_frame(attempt->sender, attempt, false, time_ns);
	for (i = 0; i < CAN_CHANNELS; i++)
		if (attempt->received & BIT(i) && can_channels[i]->port_up)
			tell_frame(can_channels[i], attempt, true, time_ns);
	if (attempt->result != CAN_RESULT_OK || attempt->disturbed)
		can_errors_attempt(attempt, time_ns);
}

/* ---- errors ------------------------------------------------------------------ */

void can_capture_errors(struct can_channel *channel, u8 first, u8 count, u64 time_ns)
{
	struct packet_head *head;
	struct sk_buff *skb;

	skb = make_packet(channel, false, sizeof(*head) + ERROR_PAYLOAD, time_ns);
	if (!skb)
		return;
	head = skb_put_zero(skb, sizeof(*head));
	head->id = cpu_to_le32(CAN_ERR_FLAG);
	head->length = ERROR_PAYLOAD;
	head->direction = 1;
	head->channel = channel->index;
	skb_put_u8(skb, first);
	skb_put_u8(skb, count);
	pass(channel, skb);
}

/* ---- control file -------------------------------------------------------------- */

static int packet_store(char *text, void *owner)
{
	u8 bytes[VBOARD_CONTROL_MAX / 2];
	struct sk_buff *skb = NULL;
	char kind[8], *hex;
	unsigned int index;
	size_t len;
	int at = 0;

	if (sscanf(text, "%u %7s %n", &index, kind, &at) != 2 || index >= CAN_CHANNELS ||
	    (strcmp(kind, "classic") && strcmp(kind, "fd")))
		return -EINVAL;
	hex = text + at;
	len = strlen(hex) / 2;
	if (!len || strlen(hex) % 2 || hex2bin(bytes, hex, len))
		return -EINVAL;

	can_change_begin();
	if (can_channels[index]->port_up)
		skb = make_packet(can_channels[index], !strcmp(kind, "fd"), len, vboard_time_ns());
	if (skb) {
		skb_put_data(skb, bytes, len);
		pass(can_channels[index], skb);
	}
	can_change_end();
	return skb ? 0 : -ENETDOWN;
}

static const struct vboard_control controls[] = {
	{ .name = "packet", .store = packet_store },
};

void can_capture_make(struct dentry *control)
{
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
}
