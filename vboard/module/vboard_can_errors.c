// SPDX-License-Identifier: GPL-2.0
/*
 * The error rings: what /dev/norvane_can<n> shows to whoever maps it.
 *
 * 24576 bytes, shared, at offset 0, for any number of openers. The first 256
 * records of 88 bytes are the ring's slots (struct error_record), the rest is
 * unused. Records are written one after the other, without regard to who reads;
 * then they are announced by a packet at ncan<n> (vboard_can_capture.c). Who
 * takes longer than 256 errors finds younger records in the slots. The ring
 * goes on where it was while the channel is down.
 *
 * Codes, and where the sender sees the error; bits are counted from 0 at the
 * start of frame, stuff bits included:
 *
 *   1  bit error          the first bit behind the control field
 *   2  stuff error        the same
 *   3  CRC error          the acknowledge delimiter
 *   4  form error         the CRC delimiter
 *   5  no acknowledgement the acknowledge slot
 *   6  bus-off            bit 0; tells no frame
 *   0  a listening core tells no code
 *
 * Positions: 0 none, 1 arbitration, 3 data, 4 CRC with its delimiter,
 * 5 acknowledge slot with its delimiter.
 *
 * Who hears a frame that fails tells it at the same bit, as received. It sees a
 * stuff error where the sender sees a bit error, since the sender's error flag
 * is six equal bits; where the sender lacks the acknowledgement, that flag
 * comes in the acknowledge delimiter, a form error. A channel of another rate,
 * and one whose sender left in the middle, tells a stuff error at bit 0 of the
 * arbitration and no frame.
 *
 * Control files:
 *   fault        one line a channel, "can0 ack 3", the kind and how many attempts
 *                are still to have it; write "<channel> <kind> <count>", the kind
 *                one of bit, stuff, crc, form, ack
 *   error_burst  write "<channel> <count> <code>": that many records, at most
 *                1000, all written before the first is announced, with the
 *                identifiers 0, 1, 2, ...; ENETDOWN while ncan<n> is down
 */
#include <linux/mm.h>
#include <linux/vmalloc.h>

#include "vboard_can.h"

#define RING_SIZE 24576
#define RING_SLOTS 256
#define ANNOUNCED_AT_MOST 255	/* by one packet */
#define ANNOUNCED_SOON 64	/* so that the reader has most of the ring's time */
#define BURST_MAX 1000

enum error_code {
	ERROR_NO_CODE,
	ERROR_BIT,
	ERROR_STUFF,
	ERROR_CRC,
	ERROR_FORM,
	ERROR_ACKNOWLEDGE,
	ERROR_BUS_OFF,
};

enum error_position {
	POSITION_NONE = 0,
	POSITION_ARBITRATION = 1,
	POSITION_DATA = 3,
	POSITION_CRC = 4,
	POSITION_ACKNOWLEDGE = 5,
};

struct error_record {
	__le64 time_ns;		/* device time */
	u8 channel;
	u8 code;
	__le16 bit;
	__le32 id;		/* bit 31: extended */
	u8 position;
	u8 fd;			/* the frame, as in the flags of a captured one ... */
	u8 received;
	u8 remote_or_brs;
	u8 dlc;
	u8 esi;			/* ... up to here */
	u8 reserved;
	u8 length;		/* bytes of data that came before the error */
	u8 data[64];
} __packed;
static_assert(sizeof(struct error_record) == 88);
static_assert(offsetof(struct error_record, id) == 12);
static_assert(offsetof(struct error_record, length) == 23);
static_assert(RING_SLOTS * sizeof(struct error_record) <= RING_SIZE);

/* Guarded by can_lock, but for the memory's pages, which the readers share. */
static struct error_ring {
	struct error_record *records;
	u8 next;		/* slot */
	unsigned int unannounced;
	u64 time_ns;		/* of the latest record */
} rings[CAN_CHANNELS];

/* ---- records ---------------------------------------------------------------- */

static void write_record(struct can_channel *channel, struct error_record *record, u64 time_ns)
{
	struct error_ring *ring = &rings[channel->index];

	record->time_ns = cpu_to_le64(time_ns);
	record->channel = channel->index;
	ring->records[ring->next++] = *record;
	ring->unannounced++;
	ring->time_ns = time_ns;
	channel->errors++;
}

void can_errors_announce(struct can_channel *channel)
{
	struct error_ring *ring = &rings[channel->index];

	while (ring->unannounced) {
		u8 count = min_t(unsigned int, ring->unannounced, ANNOUNCED_AT_MOST);

		smp_wmb();	/* who hears of a record can read it */
		can_capture_errors(channel, ring->next - ring->unannounced, count, ring->time_ns);
		ring->unannounced -= count;
	}
}

void can_errors_announce_all(void)
{
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		can_errors_announce(can_channels[i]);
}

static void tell(struct can_channel *channel, struct error_record *record, u64 time_ns)
{
	if (!channel->port_up)
		return;
	write_record(channel, record, time_ns);
	if (rings[channel->index].unannounced >= ANNOUNCED_SOON)
		can_errors_announce(channel);
}

void can_errors_bus_off(struct can_channel *channel)
{
	struct error_record record = { .code = ERROR_BUS_OFF };

	tell(channel, &record, vboard_time_ns());
}

/* ---- errors of the wire ------------------------------------------------------- */

static u8 dlc_of(const struct can_wire_frame *wire)
{
	return wire->fd ? can_fd_len2dlc(wire->frame.len) : wire->frame.len;
}

/* The frame as far as it has come: at all of these places, all of its data or none. */
static void describe(struct error_record *record, const struct can_attempt *attempt)
{
	const struct can_slot *slot = attempt->slot;
	const struct canfd_frame *frame = &slot->wire.frame;
	bool remote = !slot->wire.fd && frame->can_id & CAN_RTR_FLAG;
	bool has_data = frame->len && !remote;

	record->bit = cpu_to_le16(can_fault_bit(&slot->wire, slot->bits, attempt->passive,
						attempt->result));
	record->id = cpu_to_le32(frame->can_id & CAN_EFF_FLAG ?
				 frame->can_id & (CAN_EFF_FLAG | CAN_EFF_MASK) :
				 frame->can_id & CAN_SFF_MASK);
	record->fd = slot->wire.fd;
	record->remote_or_brs = slot->wire.fd ? !!(frame->flags & CANFD_BRS) : remote;
	record->esi = slot->wire.fd && (attempt->passive || frame->flags & CANFD_ESI);
	record->dlc = dlc_of(&slot->wire);
	switch (attempt->result) {
	case CAN_RESULT_BIT:
	case CAN_RESULT_STUFF:
		record->position = has_data ? POSITION_DATA : POSITION_CRC;
		return;
	case CAN_RESULT_FORM:
		record->position = POSITION_CRC;
		break;
	default:
		record->position = POSITION_ACKNOWLEDGE;
		break;
	}
	if (has_data) {
		record->length = frame->len;
		memcpy(record->data, frame->data, frame->len);
	}
}

static const u8 codes_of_sender[] = {
	[CAN_RESULT_NOACK] = ERROR_ACKNOWLEDGE,
	[CAN_RESULT_BIT] = ERROR_BIT,
	[CAN_RESULT_STUFF] = ERROR_STUFF,
	[CAN_RESULT_CRC] = ERROR_CRC,
	[CAN_RESULT_FORM] = ERROR_FORM,
};

static const u8 codes_of_receiver[] = {
	[CAN_RESULT_NOACK] = ERROR_FORM,
	[CAN_RESULT_BIT] = ERROR_STUFF,
	[CAN_RESULT_STUFF] = ERROR_STUFF,
	[CAN_RESULT_CRC] = ERROR_CRC,
	[CAN_RESULT_FORM] = ERROR_FORM,
};

static bool is_told_by_sender(enum can_result result)
{
	return result != CAN_RESULT_OK && result != CAN_RESULT_ABORTED;
}

static void tell_as_receiver(struct can_channel *channel, const struct can_attempt *attempt,
			     const struct error_record *sent, u64 time_ns)
{
	struct error_record record = { .code = ERROR_STUFF, .position = POSITION_ARBITRATION };

	if (is_told_by_sender(attempt->result) &&
	    can_same_rates(attempt->sender, channel, &attempt->slot->wire)) {
		record = *sent;
		record.code = codes_of_receiver[attempt->result];
		if (attempt->result == CAN_RESULT_NOACK)
			le16_add_cpu(&record.bit, 1);
	}
	record.received = 1;
	if (channel->listening)
		record.code = ERROR_NO_CODE;
	tell(channel, &record, time_ns);
}

void can_errors_attempt(const struct can_attempt *attempt, u64 time_ns)
{
	struct error_record record = {};
	unsigned int i;

	if (is_told_by_sender(attempt->result)) {
		describe(&record, attempt);
		record.code = codes_of_sender[attempt->result];
		tell(attempt->sender, &record, time_ns);
	}
	for (i = 0; i < CAN_CHANNELS; i++)
		if (attempt->disturbed & BIT(i))
			tell_as_receiver(can_channels[i], attempt, &record, time_ns);
}

/* ---- control files -------------------------------------------------------------- */

static const struct {
	const char *name;
	enum can_result result;
} kinds[] = {
	{ "bit", CAN_RESULT_BIT }, { "stuff", CAN_RESULT_STUFF }, { "crc", CAN_RESULT_CRC },
	{ "form", CAN_RESULT_FORM }, { "ack", CAN_RESULT_NOACK },
};

static int fault_show(struct seq_file *to, void *owner)
{
	unsigned int i;
	size_t k;

	spin_lock_bh(&can_lock);
	for (i = 0; i < CAN_CHANNELS; i++)
		for (k = 0; k < ARRAY_SIZE(kinds); k++)
			if (can_channels[i]->faults && can_channels[i]->fault == kinds[k].result)
				seq_printf(to, "can%u %s %u\n", i, kinds[k].name,
					   can_channels[i]->faults);
	spin_unlock_bh(&can_lock);
	return 0;
}

static int fault_store(char *text, void *owner)
{
	unsigned int index, count;
	char kind[8], more;
	size_t k;

	if (sscanf(text, "%u %7s %u%c", &index, kind, &count, &more) != 3 || index >= CAN_CHANNELS)
		return -EINVAL;
	for (k = 0; k < ARRAY_SIZE(kinds); k++) {
		if (strcmp(kind, kinds[k].name))
			continue;
		can_change_begin();
		can_channels[index]->fault = kinds[k].result;
		can_channels[index]->faults = count;
		can_change_end();
		return 0;
	}
	return -EINVAL;
}

static int error_burst_store(char *text, void *owner)
{
	unsigned int index, count, code, i;
	struct can_channel *channel;
	int err = -ENETDOWN;
	char more;

	if (sscanf(text, "%u %u %u%c", &index, &count, &code, &more) != 3 ||
	    index >= CAN_CHANNELS || count > BURST_MAX || code > U8_MAX)
		return -EINVAL;
	channel = can_channels[index];
	can_change_begin();
	if (channel->port_up) {
		for (i = 0; i < count; i++) {
			struct error_record record = {
				.code = code, .id = cpu_to_le32(i), .received = 1,
			};

			write_record(channel, &record, vboard_time_ns());
		}
		err = 0;
	}
	can_change_end();
	return err;
}

static const struct vboard_control controls[] = {
	{ .name = "fault", .show = fault_show, .store = fault_store },
	{ .name = "error_burst", .store = error_burst_store },
};

/* ---- the mapping ------------------------------------------------------------------ */

int can_errors_map(struct can_channel *channel, struct vm_area_struct *vma)
{
	if (vma->vm_pgoff || vma->vm_end - vma->vm_start > RING_SIZE)
		return -EINVAL;
	return remap_vmalloc_range(vma, rings[channel->index].records, 0);
}

int can_errors_make(struct dentry *control)
{
	unsigned int i;

	memset(rings, 0, sizeof(rings));
	for (i = 0; i < CAN_CHANNELS; i++) {
		rings[i].records = vmalloc_user(RING_SIZE);
		if (!rings[i].records) {
			can_errors_free();
			return -ENOMEM;
		}
	}
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	return 0;
}

void can_errors_free(void)
{
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		vfree(rings[i].records);
}
