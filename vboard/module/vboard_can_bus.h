/* SPDX-License-Identifier: GPL-2.0 */
/* A wire between its two files, vboard_can_bus.c and vboard_can_attempt.c. Guarded by can_lock. */
#ifndef VBOARD_CAN_BUS_H
#define VBOARD_CAN_BUS_H

#include "vboard_can.h"

#define RETRIES_WATCHED 4	/* so many unacknowledged attempts of a frame are told at once */

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

static inline struct can_slot *can_oldest(struct can_channel *channel)
{
	return &channel->slots[channel->head % CAN_SLOTS];
}

/* Puts the sender's oldest frame on the wire. */
void can_attempt_begin(struct can_bus *bus, struct can_channel *sender, u64 start_ns);
/* The end of the frame on the wire, by who is there now. */
void can_attempt_judge(struct can_bus *bus);
/* The frame on the wire has ended. */
void can_attempt_finish(struct can_bus *bus, enum can_result result);
/* The sender has gone in the middle of its frame, which stays queued. */
void can_attempt_abort(struct can_bus *bus, u64 now_ns);

#endif
