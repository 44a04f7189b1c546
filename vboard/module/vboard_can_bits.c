// SPDX-License-Identifier: GPL-2.0
/*
 * A CAN frame on the wire: how many bits it has, and which frame wins.
 *
 * Classic frames follow ISO 11898-1 with all their stuff bits, those of the
 * real CRC included. FD frames have dynamic stuff bits up to the last bit of
 * the data, and then a CRC field whose stuff bits have fixed places, so that
 * its length does not depend on the CRC's value.
 */
#include <linux/kernel.h>

#include "vboard_can.h"

#define STUFF_AFTER 5		/* equal bits */
#define CRC15_POLYNOMIAL 0x4599
#define CRC15_BITS 15

/*
 * The CRC field of an FD frame: stuff count of 4 bits and CRC of 17 or 21 bits,
 * with a fixed stuff bit at its begin and after each 4 bits.
 */
#define FD_SHORT_CRC_FIELD (4 + 17 + 6)
#define FD_LONG_CRC_FIELD (4 + 21 + 7)
#define FD_SHORT_CRC_MAX_LEN 16

struct bit_stream {
	unsigned int count;	/* with stuff bits */
	unsigned int run;	/* equal bits at the end */
	bool last;
	u16 crc;
};

static void stuff(struct bit_stream *to)
{
	if (to->run == STUFF_AFTER) {
		to->count++;
		to->last = !to->last;
		to->run = 1;
	}
}

/* Puts the low @n bits of @bits, the highest one first. */
static void put(struct bit_stream *to, u32 bits, unsigned int n)
{
	while (n--) {
		bool bit = bits & BIT(n);
		bool invert = bit != !!(to->crc & BIT(CRC15_BITS - 1));

		to->crc = (to->crc << 1) & (BIT(CRC15_BITS) - 1);
		if (invert)
			to->crc ^= CRC15_POLYNOMIAL;

		stuff(to);
		to->run = to->run && bit == to->last ? to->run + 1 : 1;
		to->last = bit;
		to->count++;
	}
}

static void put_data(struct bit_stream *to, const struct canfd_frame *frame)
{
	unsigned int i;

	for (i = 0; i < frame->len; i++)
		put(to, frame->data[i], 8);
}

/* Start of frame up to the bit that tells standard and extended apart, and the rest of the id. */
static void put_id(struct bit_stream *to, canid_t id, bool remote)
{
	put(to, 0, 1);
	if (id & CAN_EFF_FLAG) {
		put(to, (id & CAN_EFF_MASK) >> 18, 11);
		put(to, 3, 2);		/* substitute remote request, identifier extension */
		put(to, id & 0x3ffff, 18);
		put(to, remote, 1);
	} else {
		put(to, id & CAN_SFF_MASK, 11);
		put(to, remote, 1);
		put(to, 0, 1);
	}
}

static void put_classic_head(struct bit_stream *to, const struct canfd_frame *frame)
{
	put_id(to, frame->can_id, frame->can_id & CAN_RTR_FLAG);
	put(to, 0, frame->can_id & CAN_EFF_FLAG ? 2 : 1);	/* reserved */
	put(to, frame->len, 4);
}

static struct can_bits classic_bits(const struct canfd_frame *frame)
{
	struct bit_stream stream = {};

	put_classic_head(&stream, frame);
	if (!(frame->can_id & CAN_RTR_FLAG))
		put_data(&stream, frame);
	put(&stream, stream.crc, CRC15_BITS);
	stuff(&stream);
	return (struct can_bits){ .nominal = stream.count + 1 };
}

/* Returns the bits at the nominal rate: up to the one that switches. */
static u16 put_fd_head(struct bit_stream *to, const struct canfd_frame *frame, bool passive)
{
	u16 nominal;

	put_id(to, frame->can_id, false);
	put(to, 2, 2);		/* FD format, reserved */
	put(to, !!(frame->flags & CANFD_BRS), 1);
	nominal = to->count;

	put(to, passive || frame->flags & CANFD_ESI, 1);
	put(to, can_fd_len2dlc(frame->len), 4);
	return nominal;
}

static struct can_bits fd_bits(const struct canfd_frame *frame, bool passive)
{
	bool switched = frame->flags & CANFD_BRS;
	struct bit_stream stream = {};
	struct can_bits bits;
	unsigned int rest;

	bits.nominal = put_fd_head(&stream, frame, passive);
	put_data(&stream, frame);
	/* The two halves of the switching bits at both ends make one bit of each rate. */
	rest = stream.count - bits.nominal + 1 +
	       (frame->len > FD_SHORT_CRC_MAX_LEN ? FD_LONG_CRC_FIELD : FD_SHORT_CRC_FIELD);
	bits.data = switched ? rest : 0;
	bits.nominal += switched ? 0 : rest;
	return bits;
}

struct can_bits can_frame_bits(const struct can_wire_frame *wire, bool passive)
{
	return wire->fd ? fd_bits(&wire->frame, passive) : classic_bits(&wire->frame);
}

/* The bits in front of the data, or of the CRC if there are no data. */
static unsigned int head_bits(const struct can_wire_frame *wire, bool passive)
{
	struct bit_stream stream = {};

	if (wire->fd)
		put_fd_head(&stream, &wire->frame, passive);
	else
		put_classic_head(&stream, &wire->frame);
	return stream.count;
}

unsigned int can_fault_bit(const struct can_wire_frame *wire, struct can_bits bits, bool passive,
			   enum can_result fault)
{
	unsigned int acknowledge_slot = bits.nominal + bits.data;

	switch (fault) {
	case CAN_RESULT_BIT:
	case CAN_RESULT_STUFF:
		return head_bits(wire, passive);
	case CAN_RESULT_FORM:		/* in the CRC delimiter */
		return acknowledge_slot - 1;
	case CAN_RESULT_CRC:		/* told behind the acknowledge slot */
		return acknowledge_slot + 1;
	default:
		return acknowledge_slot;
	}
}

/*
 * Bit by bit as they are sent: 11 bits of the identifier, remote request (or
 * its substitute), identifier extension, 18 bits more and the remote request
 * of an extended frame, and at last the FD format bit. After the identifier
 * extension bit 0 a standard frame has nothing more to compare but the latter.
 */
u64 can_frame_rank(const struct can_wire_frame *wire)
{
	canid_t id = wire->frame.can_id;
	bool remote = !wire->fd && id & CAN_RTR_FLAG;
	u64 rank;

	if (id & CAN_EFF_FLAG)
		rank = (u64)((id & CAN_EFF_MASK) >> 18) << 21 | 3ULL << 19 |
		       (id & 0x3ffff) << 1 | remote;
	else
		rank = (u64)(id & CAN_SFF_MASK) << 21 | (u64)remote << 20;
	return rank << 1 | wire->fd;
}

void can_frame_text(char text[CAN_TEXT_MAX], const struct can_wire_frame *wire)
{
	const struct canfd_frame *frame = &wire->frame;
	canid_t id = frame->can_id;
	char *end;

	if (id & CAN_EFF_FLAG)
		end = text + scnprintf(text, CAN_TEXT_MAX, "%08X#", id & CAN_EFF_MASK);
	else
		end = text + scnprintf(text, CAN_TEXT_MAX, "%03X#", id & CAN_SFF_MASK);
	if (wire->fd)
		end += sprintf(end, "#%X", frame->flags & (CANFD_BRS | CANFD_ESI));
	if (!wire->fd && id & CAN_RTR_FLAG) {
		if (frame->len)
			sprintf(end, "R%u", frame->len);
		else
			sprintf(end, "R");
		return;
	}
	end = bin2hex(end, frame->data, frame->len);
	*end = '\0';
	for (end = text; *end; end++)
		*end = *end >= 'a' && *end <= 'f' ? *end - 'a' + 'A' : *end;
}
