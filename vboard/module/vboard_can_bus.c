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
 *  - A frame is acknowledged by any other channel that is there, does not
 *    listen only, and has the same rates (the data rate counts when the frame
 *    switches to it), or by its sender in self-acknowledge mode. Who joins
 *    in the middle of a frame does not hear it.
 *  - A frame that nobody acknowledges is an error: the sender counts 8, sends
 *    an error frame, and tries again, for ever. At 128 it is error-passive and
 *    counts no further; so a lone channel does not get bus-off. Nobody takes
 *    such a frame over, a listening channel neither.
 *  - A channel of another rate sees an error at each frame and counts it,
 *    but does not disturb the others.
 *  - An attempt that a test has ordered to fail (control file fault) is broken
 *    off for all: the sender counts 8, up to bus-off, and whoever hears it 1.
 *
 * Retries of a frame that nobody acknowledges can only end by somebody's
 * change, and that makes the wire catch up first. So they need not be watched
 * one by one: the timer looks after them each RETRY_WATCH_NS. At rates far above
 * 1 Mbit/s they are also held apart by RETRY_MIN_NS, so that they cannot be more
 * than the processor gets done.
 */
#include <linux/minmax.h>

#include "vboard_can.h"

#define NEVER U64_MAX
#define RETRY_WATCH_NS (2 * NSEC_PER_MSEC)
#define RETRIES_WATCHED 4	/* so many attempts of a frame are told at once */
#define RETRY_MIN_NS (50 * NSEC_PER_USEC)	/* from one such retry to the next */

#define ERROR_STEP 8
#define ERROR_PASSIVE 128
#define ERROR_COUNT_MAX 255
#define BUS_OFF 256

struct can_bus {
	struct hrtimer timer;
	u64 free_ns;			/* end of the last pause between frames */
	u64 woken_ns;			/* when the timer was last due */
	struct can_channel *sender;	/* of the frame on the wire, or NULL */
	bool passive;			/* it is, as the frame tells */
	enum can_result fault;		/* how it is going to fail, or CAN_RESULT_OK */
	u64 start_ns, end_ns;
	u64 answered_ns;		/* end of the acknowledge slot, or of the bit at fault */
	bool acknowledged;		/* as things stand */
	u32 hearing;			/* channels that have heard it from its start */
};

DEFINE_SPINLOCK(can_lock);
struct can_channel *can_channels[CAN_CHANNELS];
static struct can_bus buses[CAN_CHANNELS];

static bool can_send_now(const struct can_channel *channel)
{
	return can_is_on_bus(channel) && !channel->listening && channel->head != channel->tail;
}

static struct can_slot *oldest(struct can_channel *channel)
{
	return &channel->slots[channel->head % CAN_SLOTS];
}

static bool is_passive(const struct can_channel *channel)
{
	return max(channel->tx_errors, channel->rx_errors) >= ERROR_PASSIVE;
}

void can_set_errors(struct can_channel *channel, u16 tx_errors, u16 rx_errors)
{
	if (channel->tx_errors == tx_errors && channel->rx_errors == rx_errors)
		return;
	channel->tx_errors = tx_errors;
	channel->rx_errors = min_t(u16, rx_errors, ERROR_COUNT_MAX);
	can_net_errors_changed(channel);
}

/* ---- one frame ------------------------------------------------------------ */

/* The end of the frame on the wire, by who is there now. */
static void judge(struct can_bus *bus)
{
	struct can_channel *sender = bus->sender;
	unsigned int i;

	bus->acknowledged = sender->self_ack && !bus->fault;
	for (i = 0; i < CAN_CHANNELS; i++) {
		struct can_channel *other = can_channels[i];

		if (bus->hearing & BIT(i) && !other->listening && !bus->fault &&
		    can_same_rates(sender, other, &oldest(sender)->wire))
			bus->acknowledged = true;
	}
	bus->end_ns = bus->answered_ns +
		      (u64)sender->bit_ns * (bus->acknowledged ? CAN_TAIL_BITS - 1 : CAN_ERROR_BITS);
}

static struct can_bits bits_of(struct can_slot *slot, bool passive)
{
	if (!slot->bits.nominal || slot->bits_passive != passive) {
		slot->bits = can_frame_bits(&slot->wire, passive);
		slot->bits_passive = passive;
	}
	return slot->bits;
}

/* How long the first @count bits of a frame take: nominal, data, nominal again. */
static u64 bits_ns(const struct can_channel *sender, struct can_bits bits, unsigned int count)
{
	unsigned int data = clamp_t(int, (int)count - bits.nominal, 0, bits.data);

	return (u64)(count - data) * sender->bit_ns +
	       (u64)data * (sender->data_bit_ns ?: sender->bit_ns);
}

static void begin(struct can_bus *bus, struct can_channel *sender, u64 start_ns)
{
	bool passive = is_passive(sender);
	struct can_bits bits = bits_of(oldest(sender), passive);
	unsigned int i;

	bus->sender = sender;
	bus->passive = passive;
	bus->fault = CAN_RESULT_OK;
	if (sender->faults) {
		sender->faults--;
		bus->fault = sender->fault;
	}
	bus->start_ns = start_ns;
	bus->answered_ns = start_ns + bits_ns(sender, bits, 1 +
			   can_fault_bit(&oldest(sender)->wire, bits, passive,
					 bus->fault ?: CAN_RESULT_NOACK));
	bus->hearing = 0;
	for (i = 0; i < CAN_CHANNELS; i++)
		if (can_channels[i] != sender && can_channels[i]->bus == bus &&
		    can_is_on_bus(can_channels[i]))
			bus->hearing |= BIT(i);
	judge(bus);
}

/* What the frame's end does to those who heard it. */
static void tell_listeners(struct can_bus *bus, struct can_attempt *attempt)
{
	const struct can_wire_frame *wire = &attempt->slot->wire;
	bool good = attempt->result == CAN_RESULT_OK;
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++) {
		struct can_channel *other = can_channels[i];
		u16 errors = other->rx_errors;

		if (!(bus->hearing & BIT(i)))
			continue;
		if (good && can_same_rates(attempt->sender, other, wire)) {
			attempt->received |= BIT(i);
			errors = clamp_t(u16, errors, 1, ERROR_PASSIVE) - 1;
			can_net_deliver(other, wire, bus->passive);
		} else {
			attempt->disturbed |= BIT(i);
			other->disturbed++;
			errors++;
		}
		if (!other->listening)
			can_set_errors(other, other->tx_errors, errors);
	}
}

static void finish(struct can_bus *bus, enum can_result result)
{
	struct can_channel *sender = bus->sender;
	struct can_slot *slot = oldest(sender);
	struct can_attempt attempt = {
		.sender = sender,
		.slot = slot,
		.start_ns = bus->start_ns,
		.end_ns = bus->end_ns,
		.result = result,
		.passive = bus->passive,
	};

	bus->free_ns = bus->end_ns + (u64)CAN_INTERMISSION_BITS * sender->bit_ns;
	bus->sender = NULL;
	if (result == CAN_RESULT_NOACK)
		slot->attempts++;
	tell_listeners(bus, &attempt);
	can_trace_attempt(&attempt);
	can_capture_attempt(&attempt);

	switch (result) {
	case CAN_RESULT_OK:
		sender->sent++;
		sender->head++;
		can_set_errors(sender, max_t(u16, sender->tx_errors, 1) - 1, sender->rx_errors);
		can_net_sent(sender, slot);
		break;
	case CAN_RESULT_NOACK:
		sender->unacknowledged++;
		if (sender->tx_errors < ERROR_PASSIVE)
			can_set_errors(sender, sender->tx_errors + ERROR_STEP, sender->rx_errors);
		break;
	case CAN_RESULT_ABORTED:
		sender->aborted++;
		break;
	default:
		sender->faulty++;
		can_set_errors(sender, min(sender->tx_errors + ERROR_STEP, BUS_OFF),
			       sender->rx_errors);
		break;
	}
	sender->ready_ns = bus->free_ns;
	if (is_passive(sender))
		sender->ready_ns += (u64)CAN_SUSPEND_BITS * sender->bit_ns;
	if (result == CAN_RESULT_NOACK && slot->attempts > RETRIES_WATCHED)
		sender->ready_ns = max(sender->ready_ns, bus->start_ns + RETRY_MIN_NS);
}

/* The sender has gone in the middle of its frame, which stays queued. */
static void abort_frame(struct can_bus *bus, u64 now_ns)
{
	bus->end_ns = now_ns;
	finish(bus, CAN_RESULT_ABORTED);
}

/* ---- one wire -------------------------------------------------------------- */

static u64 offer_ns(const struct can_bus *bus, struct can_channel *channel)
{
	return max3(oldest(channel)->queued_ns, channel->ready_ns, bus->free_ns);
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
		rank = can_frame_rank(&oldest(channel)->wire);
		if (!winner || rank < lowest) {
			winner = channel;
			lowest = rank;
		}
	}
	begin(bus, winner, first_ns);
	return first_ns;
}

/* When the wire has to be looked after next. */
static u64 watch_ns(const struct can_bus *bus)
{
	if (bus->acknowledged || bus->fault ||
	    oldest(bus->sender)->attempts < RETRIES_WATCHED)
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
		finish(bus, bus->acknowledged ? CAN_RESULT_OK : bus->fault ?: CAN_RESULT_NOACK);
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
		abort_frame(bus, now_ns);
	else if (now_ns < bus->answered_ns)
		judge(bus);
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
		abort_frame(channel->bus, ktime_get_ns());
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
