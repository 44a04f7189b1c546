// SPDX-License-Identifier: GPL-2.0
/*
 * One attempt to send a frame on a wire: how long it takes, how it ends, and what
 * that does to the sender and to those who hear it.
 *
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
 * Retries of a frame that nobody acknowledges are held apart by RETRY_MIN_NS: at
 * rates far above 1 Mbit/s they would be more than the processor gets done.
 */
#include <linux/minmax.h>

#include "vboard_can_bus.h"

#define RETRY_MIN_NS (50 * NSEC_PER_USEC)	/* from one such retry to the next */

#define ERROR_STEP 8
#define ERROR_PASSIVE 128
#define ERROR_COUNT_MAX 255
#define BUS_OFF 256

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

void can_attempt_judge(struct can_bus *bus)
{
	struct can_channel *sender = bus->sender;
	unsigned int i;

	bus->acknowledged = sender->self_ack && !bus->fault;
	for (i = 0; i < CAN_CHANNELS; i++) {
		struct can_channel *other = can_channels[i];

		if (bus->hearing & BIT(i) && !other->listening && !bus->fault &&
		    can_same_rates(sender, other, &can_oldest(sender)->wire))
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

void can_attempt_begin(struct can_bus *bus, struct can_channel *sender, u64 start_ns)
{
	bool passive = is_passive(sender);
	struct can_bits bits = bits_of(can_oldest(sender), passive);
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
			   can_fault_bit(&can_oldest(sender)->wire, bits, passive,
					 bus->fault ?: CAN_RESULT_NOACK));
	bus->hearing = 0;
	for (i = 0; i < CAN_CHANNELS; i++)
		if (can_channels[i] != sender && can_channels[i]->bus == bus &&
		    can_is_on_bus(can_channels[i]))
			bus->hearing |= BIT(i);
	can_attempt_judge(bus);
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

void can_attempt_finish(struct can_bus *bus, enum can_result result)
{
	struct can_channel *sender = bus->sender;
	struct can_slot *slot = can_oldest(sender);
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

void can_attempt_abort(struct can_bus *bus, u64 now_ns)
{
	bus->end_ns = now_ns;
	can_attempt_finish(bus, CAN_RESULT_ABORTED);
}
