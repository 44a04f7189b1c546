// SPDX-License-Identifier: GPL-2.0
/*
 * The wires between the CAN channels.
 *
 * Each wire is a simulation of its own, from event to event, in modelled time:
 * a frame starts at the end of the pause behind the one before or when it was
 * queued, whichever is later, and takes its bits at the sender's rates. A
 * timer wakes the wire at its next event; a timer that comes late, or a call
 * from a driver, makes good everything that was due by then, in order. So a
 * late timer delays what the kernel is told and never stretches the wire.
 *
 * What holds on a wire:
 *  - A channel offers its oldest frame, as a core with a FIFO does. Of the
 *    channels that offer one when the wire gets free, the lowest arbitration
 *    field wins; if two are the same, which a well made network has not, the
 *    lower channel does.
 *  - A channel that is down, in configuration mode, bus-off or without timing
 *    is not there. A listening one takes frames and does nothing else.
 *
 * What becomes of a frame there, vboard_can_attempt.c says.
 *
 * Retries of a frame that nobody acknowledges can only end by somebody's
 * change, and that makes the wire catch up first. So they need not be watched
 * one by one: the timer looks after them each RETRY_WATCH_NS.
 */
#include <linux/minmax.h>

#include "vboard_can_bus.h"

#define NEVER U64_MAX
#define RETRY_WATCH_NS (2 * NSEC_PER_MSEC)

DEFINE_SPINLOCK(can_lock);
struct can_channel *can_channels[CAN_CHANNELS];
static struct can_bus buses[CAN_CHANNELS];

static bool can_send_now(const struct can_channel *channel)
{
	return can_is_on_bus(channel) && !channel->listening && channel->head != channel->tail;
}

/* ---- one wire -------------------------------------------------------------- */

static u64 offer_ns(const struct can_bus *bus, struct can_channel *channel)
{
	return max3(can_oldest(channel)->queued_ns, channel->ready_ns, bus->free_ns);
}

/* Starts the next frame if one is due; returns when one will be. */
static u64 start_next(struct can_bus *bus, u64 now_ns)
{
	struct can_channel *winner = NULL;
	u64 first_ns = NEVER;
	u64 lowest = U64_MAX;
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		if (can_channels[i]->bus == bus && can_send_now(can_channels[i]))
			first_ns = min(first_ns, offer_ns(bus, can_channels[i]));
	if (first_ns > now_ns)
		return first_ns;

	for (i = 0; i < CAN_CHANNELS; i++) {
		struct can_channel *channel = can_channels[i];
		u64 rank;

		if (channel->bus != bus || !can_send_now(channel) ||
		    offer_ns(bus, channel) > first_ns)
			continue;
		rank = can_frame_rank(&can_oldest(channel)->wire);
		if (!winner || rank < lowest) {
			winner = channel;
			lowest = rank;
		}
	}
	can_attempt_begin(bus, winner, first_ns);
	return first_ns;
}

/* When the wire has to be looked after next. */
static u64 watch_ns(const struct can_bus *bus)
{
	if (bus->acknowledged || bus->fault ||
	    can_oldest(bus->sender)->attempts < RETRIES_WATCHED)
		return bus->end_ns;
	return max(bus->end_ns, bus->woken_ns + RETRY_WATCH_NS);
}

/* Makes good what was due by now; returns when to look again. */
static u64 catch_up(struct can_bus *bus, u64 now_ns)
{
	for (;;) {
		if (!bus->sender) {
			u64 next_ns = start_next(bus, now_ns);

			if (!bus->sender)
				return next_ns;
		}
		if (bus->end_ns > now_ns)
			return watch_ns(bus);
		can_attempt_finish(bus, bus->acknowledged ? CAN_RESULT_OK : bus->fault ?: CAN_RESULT_NOACK);
	}
}

static void advance(struct can_bus *bus, u64 now_ns)
{
	u64 next_ns = catch_up(bus, now_ns);

	can_errors_announce_all();
	if (next_ns != NEVER)
		hrtimer_start(&bus->timer, ns_to_ktime(next_ns), HRTIMER_MODE_ABS_SOFT);
}

static enum hrtimer_restart on_timer(struct hrtimer *timer)
{
	struct can_bus *bus = container_of(timer, struct can_bus, timer);

	spin_lock(&can_lock);
	bus->woken_ns = ktime_get_ns();
	advance(bus, bus->woken_ns);
	spin_unlock(&can_lock);
	return HRTIMER_NORESTART;
}

/* ---- changes from outside ---------------------------------------------------- */

static void advance_all(void)
{
	u64 now_ns = ktime_get_ns();
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		advance(&buses[i], now_ns);
}

void can_change_begin(void)
{
	spin_lock_bh(&can_lock);
	advance_all();
}

/* A frame on the wire loses those who have gone, and its acknowledgement maybe with them. */
static void reconsider(struct can_bus *bus, u64 now_ns)
{
	unsigned int i;

	if (!bus->sender)
		return;
	for (i = 0; i < CAN_CHANNELS; i++)
		if (can_channels[i]->bus != bus || !can_is_on_bus(can_channels[i]))
			bus->hearing &= ~BIT(i);
	if (bus->sender->bus != bus || !can_send_now(bus->sender))
		can_attempt_abort(bus, now_ns);
	else if (now_ns < bus->answered_ns)
		can_attempt_judge(bus);
}

void can_change_end(void)
{
	u64 now_ns = ktime_get_ns();
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		reconsider(&buses[i], now_ns);
	advance_all();
	spin_unlock_bh(&can_lock);
}

void can_drop_frames(struct can_channel *channel)
{
	if (channel->bus->sender == channel)
		can_attempt_abort(channel->bus, ktime_get_ns());
	while (channel->head != channel->tail) {
		channel->head++;
		can_net_dropped(channel, &channel->slots[(channel->head - 1) % CAN_SLOTS]);
	}
}

static bool is_full(const struct can_channel *channel)
{
	return channel->tail - channel->head >= CAN_SLOTS;
}

bool can_bus_is_full(struct can_channel *channel)
{
	bool full;

	spin_lock(&can_lock);
	advance(channel->bus, ktime_get_ns());
	full = is_full(channel);
	spin_unlock(&can_lock);
	return full;
}

bool can_bus_queue(struct can_channel *channel, const struct can_slot *slot)
{
	bool taken;
	u64 now_ns;

	spin_lock(&can_lock);
	now_ns = ktime_get_ns();
	catch_up(channel->bus, now_ns);
	taken = channel->up && !is_full(channel);
	if (taken) {
		struct can_slot *place = &channel->slots[channel->tail++ % CAN_SLOTS];

		*place = *slot;
		place->queued_ns = now_ns;
	}
	advance(channel->bus, now_ns);
	if (is_full(channel))
		netif_stop_queue(channel->dev);
	spin_unlock(&can_lock);
	return taken;
}

/* ---- wiring -------------------------------------------------------------------- */

void can_wiring(u8 wire_of[CAN_CHANNELS])
{
	unsigned int i;

	spin_lock_bh(&can_lock);
	for (i = 0; i < CAN_CHANNELS; i++)
		wire_of[i] = can_channels[i]->bus - buses;
	spin_unlock_bh(&can_lock);
}

void can_set_wiring(const u8 wire_of[CAN_CHANNELS])
{
	unsigned int i;

	can_change_begin();
	for (i = 0; i < CAN_CHANNELS; i++)
		can_channels[i]->bus = &buses[wire_of[i]];
	can_change_end();
}

void can_bus_make(void)
{
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++) {
		memset(&buses[i], 0, sizeof(buses[i]));
		hrtimer_init(&buses[i].timer, CLOCK_MONOTONIC, HRTIMER_MODE_ABS_SOFT);
		buses[i].timer.function = on_timer;
		can_channels[i]->bus = &buses[i & ~1U];
	}
}

/* The channels have gone down: nothing starts a timer again. */
void can_bus_free(void)
{
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		hrtimer_cancel(&buses[i].timer);
}
