// SPDX-License-Identifier: GPL-2.0
/*
 * The records of what a channel has seen: what /dev/LIN<n>_CHAR shows to
 * whoever maps it, read only and shared, at offset 0, for any number of openers.
 *
 * 11200 bytes, rounded up to whole pages: 100 records of 112 bytes, struct
 * lin_rx_detil, written in turn without regard to who reads, one for each
 * frame and each wake-up while the channel is up; of frames, only when it has a
 * bit rate. Then LIN<n> tells of it, if open_rx is 1 (vboard_lin_net.c). Who takes
 * longer than 100 records finds younger ones in the place.
 *
 *   lin_id             identifier without parity as it was read; 100: a wake-up,
 *                      of which only the two stamps are told
 *   error_code         LIN_ERROR_... (vboard_lin_wire.h), 0 for a good frame
 *   lf                 as it was read; dlc 0 and no data when nobody answered
 *   lf.calu_checksum   what the checksum should be, by the channel's version;
 *                      lf.checksum is what was there
 *   ..._time_stamp     device time in ns: begin of the break or pulse; end of the
 *                      checksum, of the pulse, or of the wait for a response
 *   header_length, break_field_length, break_delimiter_length, interbyte_length
 *                      bits of the header's rate, as its sender formed them;
 *                      interbyte is the space between sync byte and identifier
 *   syncbyte_length    10, the bits of a byte
 *   interbyte_before1 to 8, interbyte_beforecs, response_length
 *                      bits of the response's rate; the first is the space
 *                      between header and response
 *   ..._baudrate       bit/s; 0 when nobody answered
 *
 * Who could not make out the frame, because its rate is too far from the
 * channel's, has lin_id and lf 0 but for the stamps.
 */
#include <linux/mm.h>
#include <linux/vmalloc.h>

#include "vboard_lin.h"

#define RECORDS_SIZE (LIN_RECORDS * sizeof(struct lin_rx_detil))

static void describe_times(struct lin_rx_detil *record, const struct lin_event *event)
{
	const struct lin_timing *timing = event->timing;
	const struct lin_wire *wire = event->wire;
	u8 i;

	record->header_length = cpu_to_le32(wire->header_bits);
	record->break_field_length = cpu_to_le32(timing->break_bits);
	record->break_delimiter_length = cpu_to_le32(timing->delimiter_bits);
	record->interbyte_length = cpu_to_le32(timing->pid_space);
	record->syncbyte_length = cpu_to_le32(LIN_BYTE_BITS);
	record->header_baudrate = cpu_to_le32(timing->header_rate);
	if (!wire->len)
		return;
	for (i = 0; i < wire->len; i++)
		record->interbyte_before[i] = cpu_to_le32(timing->spaces[i]);
	record->interbyte_beforecs = cpu_to_le32(timing->spaces[LIN_DATA_MAX]);
	record->response_length = cpu_to_le32(wire->count - wire->header_bits);
	record->response_baudrate = cpu_to_le32(timing->response_rate);
}

/* Returns the error code. */
static u32 describe_frame(const struct lin_channel *channel, struct lin_rx_detil *record,
			  const struct lin_event *event)
{
	const struct lin_reading *reading = &event->reading;
	struct lin_rx_frame *frame = &record->lf;
	u32 errors = reading->errors;

	record->lin_id = cpu_to_le32(reading->pid % LIN_IDS);
	frame->pid = reading->pid;
	frame->dlc = reading->len;
	memcpy(frame->data, reading->data, reading->len);
	if (reading->len) {
		frame->checksum = reading->checksum;
		frame->calu_checksum = lin_checksum(reading->pid, reading->data, reading->len,
						    lin_is_classic(channel));
		errors |= frame->checksum != frame->calu_checksum ? LIN_ERROR_CHECKSUM : 0;
	}
	if ((event->sender == channel->index && event->header_changed) ||
	    (event->responder == channel->index && event->response_changed))
		errors |= LIN_ERROR_BIT | LIN_ERROR_FRAMING;
	describe_times(record, event);
	return errors;
}

static void count(struct lin_channel *channel, const struct lin_event *event, u32 errors)
{
	channel->recorded++;
	channel->wakeups += event->is_pulse;
	channel->faulty += !!errors;
	channel->silent += !!(errors & LIN_ERROR_NO_RESPONSE);
	channel->headers += !event->is_pulse && event->sender == channel->index;
	channel->answers += event->responder == channel->index;
	channel->received += event->responder != channel->index && event->reading.len;
}

void lin_records_add(struct lin_channel *channel, const struct lin_event *event)
{
	enum lin_sender from = event->responder != LIN_SENDER_NONE ? event->responder :
								     event->sender;
	u64 end_ns = vboard_time_at(event->end_ns);
	u8 index = channel->next_record;
	struct lin_rx_detil record = {};
	u32 errors = 0;

	if (event->is_pulse)
		record.lin_id = cpu_to_le32(LIN_WAKEUP_ID);
	else
		errors = describe_frame(channel, &record, event);
	record.error_code = cpu_to_le32(errors);
	record.lf.start_time_stamp = cpu_to_le64(vboard_time_at(event->start_ns));
	record.lf.end_time_stamp = cpu_to_le64(end_ns);
	channel->records[index] = record;
	channel->next_record = (index + 1) % LIN_RECORDS;
	count(channel, event, errors);
	smp_wmb();	/* who hears of a record can read it */
	if (channel->open_rx)
		lin_net_tell(channel, event->reading.pid, index, from != channel->index, end_ns);
}

/* ---- the memory ------------------------------------------------------------------- */

int lin_records_map(struct lin_channel *channel, struct vm_area_struct *vma)
{
	if (vma->vm_pgoff || vma->vm_end - vma->vm_start > PAGE_ALIGN(RECORDS_SIZE))
		return -EINVAL;
	if (vma->vm_flags & VM_WRITE)
		return -EACCES;
	vma->vm_flags &= ~VM_MAYWRITE;
	return remap_vmalloc_range(vma, channel->records, 0);
}

void lin_records_clear(struct lin_channel *channel)
{
	memset(channel->records, 0, RECORDS_SIZE);
	channel->next_record = 0;
}

int lin_records_make(struct lin_channel *channel)
{
	channel->records = vmalloc_user(RECORDS_SIZE);
	return channel->records ? 0 : -ENOMEM;
}

void lin_records_free(struct lin_channel *channel)
{
	vfree(channel->records);
}
