// SPDX-License-Identifier: GPL-2.0
/*
 * The LIN clusters: one a channel, or one of both when their wires are joined.
 *
 * A cluster is a simulation from event to event in modelled time, as the CAN
 * wires are (vboard_can_bus.c): a header starts when it was queued or at the
 * end of what was on the wire, whichever is later, and takes its bits at the
 * sender's rate. A timer that comes late makes good what was due, in order.
 *
 * What holds in a cluster, besides the course of a frame (vboard_lin_frame.c):
 *  - Whoever wants to send waits until the wire is free; the earliest goes
 *    first. So two commanders do not collide, they take turns.
 *  - What the sender of a header or of a response leaves in the middle is
 *    broken off, and nobody has a record of it.
 *  - A header ends whatever wake-up pulses are still to come.
 */
#include <linux/minmax.h>

#include "vboard_lin.h"

#define NEVER U64_MAX
#define WAKEUP_MIN_NS (150 * NSEC_PER_USEC)	/* what a node takes for a wake-up */

DEFINE_SPINLOCK(lin_lock);
struct lin_channel *lin_channels[LIN_CHANNELS];
static struct lin_bus buses[LIN_CHANNELS];

static u32 members(const struct lin_bus *bus)
{
	u32 mask = 0;
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++)
		mask |= lin_channels[i]->bus == bus ? BIT(i) : 0;
	return mask;
}

/* ---- the end of what was on the wire ------------------------------------------------ */

struct lin_event lin_event_of(const struct lin_bus *bus)
{
	return (struct lin_event){
		.queued_ns = bus->slot.queued_ns,
		.start_ns = bus->start_ns,
		.end_ns = bus->next_ns,
		.channels = members(bus),
		.sender = bus->sender,
		.responder = bus->responder,
	};
}

static void finish_frame(struct lin_bus *bus)
{
	bus->phase = LIN_IDLE;
	bus->free_ns = bus->next_ns;
	lin_frame_end(bus);
}

static void finish_pulse(struct lin_bus *bus)
{
	struct lin_event event = lin_event_of(bus);
	unsigned int i;

	event.is_pulse = true;
	event.is_short = event.end_ns - event.start_ns < WAKEUP_MIN_NS;
	bus->phase = LIN_IDLE;
	bus->free_ns = bus->next_ns;
	bus->asleep = bus->asleep && event.is_short;
	for (i = 0; i < LIN_CHANNELS; i++)
		if (bus->hearing & BIT(i) && !event.is_short)
			lin_records_add(lin_channels[i], &event);
	lin_trace_add(&event);
}

static void abort_event(struct lin_bus *bus, u64 now_ns)
{
	struct lin_event event;

	if (bus->phase == LIN_PULSE)
		event = lin_event_of(bus);
	else
		event = lin_frame_event(bus);
	event.is_pulse = bus->phase == LIN_PULSE;
	event.is_aborted = true;
	event.end_ns = clamp(now_ns, event.start_ns, event.end_ns);
	bus->phase = LIN_IDLE;
	bus->free_ns = event.end_ns;
	if (event.sender < LIN_CHANNELS)
		lin_channels[event.sender]->aborted++;
	lin_trace_add(&event);
}

/* ---- one cluster ---------------------------------------------------------------------- */

static u64 offer_ns(const struct lin_bus *bus, const struct lin_station *station)
{
	u64 first_ns = NEVER;

	if (station->head != station->tail)
		first_ns = station->slots[station->head % LIN_SLOTS].queued_ns;
	if (station->pulses.left)
		first_ns = min(first_ns, station->pulses.due_ns);
	return max(first_ns, bus->free_ns);
}

static void begin_pulse(struct lin_bus *bus, struct lin_pulses *pulses)
{
	bus->phase = LIN_PULSE;
	bus->slot.queued_ns = pulses->due_ns;
	bus->next_ns = bus->start_ns + pulses->length_ns;
	pulses->left--;
	pulses->due_ns = bus->next_ns + pulses->pause_ns;
}

static void end_pulses(const struct lin_bus *bus)
{
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++) {
		if (lin_channels[i]->bus != bus)
			continue;
		lin_channels[i]->own.pulses.left = 0;
		lin_channels[i]->other.pulses.left = 0;
	}
}

static void begin(struct lin_bus *bus, struct lin_channel *channel, bool own, u64 start_ns)
{
	struct lin_station *station = own ? &channel->own : &channel->other;
	const struct lin_slot *slot = &station->slots[station->head % LIN_SLOTS];
	bool has_frame = station->head != station->tail;
	unsigned int i;

	bus->start_ns = start_ns;
	bus->sender = own ? channel->index : LIN_SENDER_NODE;
	bus->responder = LIN_SENDER_NONE;
	bus->hearing = 0;
	for (i = 0; i < LIN_CHANNELS; i++)
		if (lin_channels[i]->bus == bus && lin_channels[i]->up)
			bus->hearing |= BIT(i);
	if (station->pulses.left && (!has_frame || station->pulses.due_ns < slot->queued_ns)) {
		begin_pulse(bus, &station->pulses);
		return;
	}
	end_pulses(bus);
	station->head++;
	lin_frame_begin(bus, slot);
	if (own)
		lin_net_wake(channel);
}

/* Starts what is due next, if it is; returns when something will be. */
static u64 start_next(struct lin_bus *bus, u64 now_ns)
{
	struct lin_channel *first = NULL;
	u64 first_ns = NEVER;
	bool own = false;
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++) {
		struct lin_channel *channel = lin_channels[i];

		if (channel->bus != bus)
			continue;
		if (offer_ns(bus, &channel->own) < first_ns) {
			first_ns = offer_ns(bus, &channel->own);
			first = channel;
			own = true;
		}
		if (offer_ns(bus, &channel->other) < first_ns) {
			first_ns = offer_ns(bus, &channel->other);
			first = channel;
			own = false;
		}
	}
	if (first_ns <= now_ns)
		begin(bus, first, own, first_ns);
	return first_ns;
}

/* Makes good what was due by now; returns when to look again. */
static u64 catch_up(struct lin_bus *bus, u64 now_ns)
{
	for (;;) {
		if (bus->phase == LIN_IDLE) {
			u64 next_ns = start_next(bus, now_ns);

			if (bus->phase == LIN_IDLE)
				return next_ns;
		}
		if (bus->next_ns > now_ns)
			return bus->next_ns;
		if (bus->phase == LIN_HEADER)
			lin_frame_answer(bus);
		else if (bus->phase == LIN_RESPONSE)
			finish_frame(bus);
		else
			finish_pulse(bus);
	}
}

static void advance(struct lin_bus *bus, u64 now_ns)
{
	u64 next_ns = catch_up(bus, now_ns);

	if (next_ns != NEVER)
		hrtimer_start(&bus->timer, ns_to_ktime(next_ns), HRTIMER_MODE_ABS_SOFT);
}

static enum hrtimer_restart on_timer(struct hrtimer *timer)
{
	spin_lock(&lin_lock);
	advance(container_of(timer, struct lin_bus, timer), ktime_get_ns());
	spin_unlock(&lin_lock);
	return HRTIMER_NORESTART;
}

/* ---- changes from outside ----------------------------------------------------------------- */

static void advance_all(void)
{
	u64 now_ns = ktime_get_ns();
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++)
		advance(&buses[i], now_ns);
}

void lin_change_begin(void)
{
	spin_lock_bh(&lin_lock);
	advance_all();
}

void lin_change_end(void)
{
	advance_all();
	spin_unlock_bh(&lin_lock);
}

bool lin_bus_push(struct lin_station *station, const struct lin_slot *slot)
{
	struct lin_slot *place;

	if (lin_bus_is_full(station))
		return false;
	place = &station->slots[station->tail++ % LIN_SLOTS];
	*place = *slot;
	place->queued_ns = ktime_get_ns();
	return true;
}

void lin_bus_pulses(struct lin_station *station, u32 count, u64 length_ns, u64 pause_ns)
{
	station->pulses = (struct lin_pulses){
		.left = count,
		.due_ns = ktime_get_ns(),
		.length_ns = length_ns,
		.pause_ns = pause_ns,
	};
}

void lin_bus_drop(struct lin_station *station)
{
	station->head = station->tail;
	station->pulses.left = 0;
}

void lin_bus_leave(struct lin_channel *channel)
{
	struct lin_bus *bus = channel->bus;

	lin_bus_drop(&channel->own);
	if (bus->phase != LIN_IDLE &&
	    (bus->sender == channel->index || bus->responder == channel->index))
		abort_event(bus, ktime_get_ns());
	bus->hearing &= ~BIT(channel->index);
}

/* ---- wiring ------------------------------------------------------------------------ */

bool lin_bus_is_joined(void)
{
	return lin_channels[0]->bus == lin_channels[1]->bus;
}

void lin_bus_join(bool together)
{
	unsigned int i;

	if (together == lin_bus_is_joined())
		return;
	for (i = 0; i < LIN_CHANNELS; i++) {
		if (buses[i].phase != LIN_IDLE)
			abort_event(&buses[i], ktime_get_ns());
		buses[i].asleep = false;
	}
	for (i = 0; i < LIN_CHANNELS; i++)
		lin_channels[i]->bus = &buses[together ? 0 : i];
}

void lin_bus_make(void)
{
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++) {
		memset(&buses[i], 0, sizeof(buses[i]));
		hrtimer_init(&buses[i].timer, CLOCK_MONOTONIC, HRTIMER_MODE_ABS_SOFT);
		buses[i].timer.function = on_timer;
		lin_channels[i]->bus = &buses[i];
	}
}

/* The channels have gone down, and other nodes have nothing to send: no timer starts again. */
void lin_bus_free(void)
{
	unsigned int i;

	for (i = 0; i < LIN_CHANNELS; i++)
		hrtimer_cancel(&buses[i].timer);
}
