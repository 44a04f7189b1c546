// SPDX-License-Identifier: GPL-2.0
/*
 * The course of a LIN frame: header, response, end.
 *
 *  - The response follows the header at once. The header's own station sends
 *    it if it was given one; else a channel that is up, responder, and has one
 *    for the identifier, the lower channel first; else another node that has
 *    one. It is chosen at the end of the header.
 *  - Nobody but the header's own station answers a header whose break, sync
 *    byte or identifier is damaged. Of a rate that is off by more than
 *    HEADER_TOLERANCE no channel understands it; other nodes take any rate.
 *  - A responder answers at the header's rate, unless its response says another;
 *    more than RESPONSE_TOLERANCE away from the header's, nobody can read it.
 *  - A header that nobody answers occupies the wire for as long as the response
 *    would without spaces, as the header's sender expects it.
 *  - A sender whose bits come out otherwise notes it, and goes on to the end.
 *  - A frame 0x3c with 0 as its first byte, read without error, puts the
 *    cluster to sleep. Each header wakes it; but other nodes do not answer the
 *    header that has waked them.
 */
#include <linux/minmax.h>

#include "vboard_lin.h"

#define HEADER_TOLERANCE 14	/* per cent: a node finds the rate by the sync byte */
#define RESPONSE_TOLERANCE 5	/* per cent */
#define ID_MASK (LIN_IDS - 1)

static bool is_within(u32 rate, u32 of, unsigned int per_cent)
{
	return (max(rate, of) - min(rate, of)) * 100 <= of * per_cent;
}

static bool hears_header(const struct lin_channel *channel, const struct lin_timing *timing)
{
	return channel->bitrate &&
	       is_within(timing->header_rate, channel->bitrate, HEADER_TOLERANCE);
}

static bool can_be_read(const struct lin_timing *timing)
{
	return !timing->response_rate ||
	       is_within(timing->response_rate, timing->header_rate, RESPONSE_TOLERANCE);
}

/* ---- what disturbs a frame ------------------------------------------------------ */

static enum lin_fault take_fault(struct lin_bus *bus, u8 id)
{
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++) {
		struct lin_channel *channel = lin_channels[i];

		if (channel->bus != bus || !channel->faults ||
		    (channel->fault_id >= 0 && channel->fault_id != id))
			continue;
		channel->faults--;
		return channel->fault;
	}
	return LIN_FAULT_NONE;
}

/* What the channels force upon the bits from @from on. */
static bool override_bits(struct lin_bus *bus, unsigned int from)
{
	bool changed = false;
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++) {
		struct lin_channel *channel = lin_channels[i];
		struct lin_disturb *disturb = &channel->disturb;
		bool again = bus->overridden & BIT(i);

		if (channel->bus != bus || !channel->up || (!disturb->on_off && !again) ||
		    (disturb->enable_id && disturb->lin_id != (bus->slot.pid & ID_MASK)))
			continue;
		if (!lin_force(&bus->wire, from, disturb->field, disturb->offset,
			       disturb->time_length, disturb->type, &changed) || again)
			continue;
		bus->overridden |= BIT(i);
		channel->disturbed++;
		if (disturb->enable_times) {
			le16_add_cpu(&disturb->times, -1);
			disturb->on_off = !!disturb->times;
		}
	}
	return changed;
}

/* ---- a frame --------------------------------------------------------------------- */

void lin_frame_begin(struct lin_bus *bus, const struct lin_slot *from)
{
	struct lin_slot *slot = &bus->slot;

	*slot = *from;
	bus->fault = take_fault(bus, slot->pid & ID_MASK);
	bus->waked = bus->asleep;
	bus->asleep = false;
	lin_put_header(&bus->wire, &slot->timing,
		       bus->fault == LIN_FAULT_SYNC ? slot->sync ^ 1 : slot->sync,
		       bus->fault == LIN_FAULT_PARITY ? slot->pid ^ 0x80 : slot->pid);
	bus->overridden = 0;
	bus->header_changed = override_bits(bus, 0);
	bus->response_changed = false;
	bus->phase = LIN_HEADER;
	bus->next_ns = bus->start_ns + lin_bits_ns(bus->wire.header_bits, slot->timing.header_rate);
}

/* Who answers the header, and with what; NULL when nobody does. */
static const struct lin_response *choose_response(struct lin_bus *bus,
						  const struct lin_reading *reading)
{
	u8 id = reading->pid & ID_MASK;
	unsigned int i;

	if (bus->fault == LIN_FAULT_RESPONSE)
		return NULL;
	if (bus->slot.response.is_set) {
		bus->responder = bus->sender;
		return &bus->slot.response;
	}
	if (reading->errors & ~LIN_ERROR_NO_RESPONSE)
		return NULL;
	for (i = 0; i < LIN_CHANNELS; i++) {
		struct lin_channel *channel = lin_channels[i];

		if (bus->hearing & BIT(i) && channel->mode == RESPONDER &&
		    hears_header(channel, &bus->slot.timing) && channel->responses[id].is_set) {
			bus->responder = i;
			return &channel->responses[id];
		}
	}
	for (i = 0; i < LIN_CHANNELS; i++) {
		if (lin_channels[i]->bus == bus && !bus->waked && lin_channels[i]->nodes[id].is_set) {
			bus->responder = LIN_SENDER_NODE;
			return &lin_channels[i]->nodes[id];
		}
	}
	return NULL;
}

void lin_frame_answer(struct lin_bus *bus)
{
	struct lin_timing *timing = &bus->slot.timing;
	const struct lin_response *response;
	struct lin_reading reading;
	bool classic;
	u8 checksum;

	lin_read(&bus->wire, &reading);
	response = choose_response(bus, &reading);
	bus->phase = LIN_RESPONSE;
	if (!response) {
		timing->response_rate = 0;
		bus->next_ns += lin_bits_ns((bus->slot.expected + 1) * LIN_BYTE_BITS,
					    timing->header_rate);
		return;
	}

	memcpy(timing->spaces, response->spaces, sizeof(timing->spaces));
	timing->response_rate = response->rate ?: timing->header_rate;
	classic = bus->responder < LIN_CHANNELS ? lin_is_classic(lin_channels[bus->responder]) :
						  response->classic;
	checksum = lin_checksum(response == &bus->slot.response ? bus->slot.pid : reading.pid,
				response->data, response->len, classic);
	if (bus->fault == LIN_FAULT_CHECKSUM)
		checksum = ~checksum;
	lin_put_response(&bus->wire, timing, response->data, response->len, checksum);
	if (bus->fault == LIN_FAULT_FRAMING)
		lin_force(&bus->wire, 0, LIN_FIELD_DATA, LIN_BYTE_BITS - 1, 1, LIN_LEVEL_DOMINANT,
			  &bus->response_changed);
	if (bus->fault == LIN_FAULT_BIT)
		lin_force(&bus->wire, 0, LIN_FIELD_DATA, 1, 1, LIN_LEVEL_INVERTED,
			  &bus->response_changed);
	bus->response_changed |= override_bits(bus, bus->wire.header_bits);
	bus->next_ns += lin_bits_ns(bus->wire.count - bus->wire.header_bits, timing->response_rate);
}

static bool is_sleep_command(const struct lin_event *event)
{
	const struct lin_reading *reading = &event->reading;

	return reading->pid == LIN_ID_REQUEST && !reading->errors && !reading->data[0] &&
	       can_be_read(event->timing) &&
	       reading->checksum == lin_checksum(reading->pid, reading->data, reading->len, true);
}

/* A channel's own part is as it sent it; of the rest it reads what its rate lets it read. */
static void record_frame(struct lin_channel *channel, const struct lin_event *frame)
{
	struct lin_event event = *frame;
	bool sent = event.sender == channel->index;

	if (!sent && !hears_header(channel, event.timing)) {
		memset(&event.reading, 0, sizeof(event.reading));
		event.reading.errors = LIN_ERROR_HEADER | LIN_ERROR_FRAMING;
	} else if (event.responder != channel->index && !can_be_read(event.timing)) {
		event.reading.len = 0;
		event.reading.checksum = 0;
		memset(event.reading.data, 0, sizeof(event.reading.data));
		event.reading.errors |= LIN_ERROR_FRAMING;
	}
	lin_records_add(channel, &event);
}

struct lin_event lin_frame_event(const struct lin_bus *bus)
{
	struct lin_event event = lin_event_of(bus);

	event.timing = &bus->slot.timing;
	event.wire = &bus->wire;
	event.header_changed = bus->header_changed;
	event.response_changed = bus->response_changed;
	lin_read(&bus->wire, &event.reading);
	return event;
}

void lin_frame_end(struct lin_bus *bus)
{
	struct lin_event event = lin_frame_event(bus);
	unsigned int i;

	bus->asleep = is_sleep_command(&event);
	for (i = 0; i < LIN_CHANNELS; i++)
		if (bus->hearing & BIT(i) && lin_channels[i]->bitrate)
			record_frame(lin_channels[i], &event);
	lin_trace_add(&event);
}
