/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The six CAN channels between their files:
 *
 *   vboard_can.c          the device: makes the channels, control files
 *   vboard_can_net.c      can0 to can5, the protocol core as a net device
 *   vboard_can_port.c     ncan0 to ncan5 and /dev/norvane_can0 to 5, the port core
 *   vboard_can_regs.c     the registers of both
 *   vboard_can_bus.c      the wires: who sends, and when
 *   vboard_can_attempt.c  one frame on a wire: how long, how it ends, who hears it
 *   vboard_can_bits.c     a frame on the wire: its length and its rank
 *   vboard_can_trace.c    what the wires saw
 *   vboard_can_capture.c  what ncan0 to ncan5 tell of it: a packet for each frame
 *   vboard_can_errors.c   the error rings in /dev/norvane_can0 to 5
 *   vboard_can_uplink.c   the way of packets to the kernel
 *   vboard_can_bcm.c      the CAN_BCM protocol
 *   vboard_can_task.c     its periodic frames
 *
 * Times are nanoseconds of the kernel's monotonic clock, unless said otherwise.
 */
#ifndef VBOARD_CAN_H
#define VBOARD_CAN_H

#include <linux/can.h>
#include <linux/can/dev.h>
#include <linux/hrtimer.h>
#include <linux/netdevice.h>
#include <linux/skbuff.h>
#include <linux/spinlock.h>
#include <linux/types.h>

#include "vboard.h"
#include "vboard_can_uplink.h"

#define CAN_CHANNELS 6
#define CAN_CLOCK_HZ 40000000U
#define CAN_CLOCK_NS 25U		/* one period of the cores' clock */
#define CAN_SLOTS 32U			/* frames that a core holds for sending */

/* ---- a frame on the wire ------------------------------------------------ */

/* A classic frame uses the first 16 bytes: the layouts agree up to there. */
struct can_wire_frame {
	struct canfd_frame frame;
	bool fd;
};

/*
 * The bits of a frame up to and with the CRC delimiter, stuff bits included:
 * first those at the nominal rate, then those at the data rate. The acknowledge
 * slot and CAN_TAIL_BITS - 1 bits follow at the nominal rate.
 */
struct can_bits {
	u16 nominal;
	u16 data;
};

#define CAN_TAIL_BITS 9			/* acknowledge slot, its delimiter, end of frame */
#define CAN_INTERMISSION_BITS 3
#define CAN_ERROR_BITS 14		/* error flag and error delimiter */
#define CAN_SUSPEND_BITS 8		/* pause of an error-passive sender */

/* How an attempt to send ended; from CAN_RESULT_BIT on, as a test has ordered. */
enum can_result {
	CAN_RESULT_OK,
	CAN_RESULT_NOACK,
	CAN_RESULT_ABORTED,
	CAN_RESULT_BIT,		/* the wire had another level than the sender's */
	CAN_RESULT_STUFF,	/* six equal bits */
	CAN_RESULT_CRC,
	CAN_RESULT_FORM,	/* a delimiter was not recessive */
};

/* @passive: the sender is error-passive, which an FD frame tells in a bit. */
struct can_bits can_frame_bits(const struct can_wire_frame *wire, bool passive);
/*
 * The bit, counted from 0, at which a frame of that length shows such a fault:
 * a wrong level or six equal bits at the first bit behind the control field.
 */
unsigned int can_fault_bit(const struct can_wire_frame *wire, struct can_bits bits, bool passive,
			   enum can_result fault);
/* The arbitration field as a number: of two frames, the lower one wins the bus. */
u64 can_frame_rank(const struct can_wire_frame *wire);

#define CAN_TEXT_MAX 160
/* Writes the frame in the notation of cansend, such as "123#DEADBEEF". */
void can_frame_text(char text[CAN_TEXT_MAX], const struct can_wire_frame *wire);

/* ---- channels ----------------------------------------------------------- */

enum can_origin { CAN_ORIGIN_RAW, CAN_ORIGIN_BCM };

/* A frame that waits for the bus. */
struct can_slot {
	struct can_wire_frame wire;
	enum can_origin origin;
	u64 queued_ns;			/* when the driver got it */
	u32 attempts;			/* unacknowledged so far */
	struct can_bits bits;		/* as counted for a sender that is ... */
	bool bits_passive;		/* ... error-passive, or not; none yet if 0 */
	u64 trace_entry;		/* where its further attempts are counted */
	struct sk_buff *echo;		/* for the sender's own listeners, or NULL */
};

struct can_bus;

/* One channel. All fields are guarded by can_lock unless said otherwise. */
struct can_channel {
	unsigned int index;
	struct net_device *dev;		/* can<index>; constant */
	struct net_device *port;	/* ncan<index>; constant */

	bool up;			/* the net device is */
	bool port_up;			/* the port's net device is: it tells what it sees */
	bool bus_off;
	u16 tx_errors, rx_errors;	/* the counters that can lead to bus-off */
	int self_ack;			/* not 0: acknowledges its own frames */
	/* As the registers say: */
	bool enabled;			/* not in configuration mode */
	bool listening;
	u32 bit_ns, data_bit_ns;	/* 0: no timing has been set */

	struct can_bus *bus;
	u64 ready_ns;			/* no sending before this */
	u32 head, tail;			/* free-running; head is the oldest frame */
	struct can_slot slots[CAN_SLOTS];

	u32 faults;			/* that so many attempts are still to have ... */
	enum can_result fault;		/* ... of this kind */
	u64 sent, received, unacknowledged, disturbed, aborted, faulty;
	u64 captured, errors;		/* packets of frames, records in the error ring */

	struct can_uplink uplink;	/* of can<index> */
	struct can_uplink port_uplink;	/* of ncan<index> */
};

extern struct can_channel *can_channels[CAN_CHANNELS];
extern spinlock_t can_lock;		/* taken in process and soft interrupt context */

/* ---- vboard_can_bus.c ---------------------------------------------------- */

/*
 * One try to send a frame, as the wire saw it. The masks have a bit for each
 * channel: @received took the frame over, @disturbed saw it at another rate.
 */
struct can_attempt {
	struct can_channel *sender;
	struct can_slot *slot;
	u64 start_ns, end_ns;
	enum can_result result;
	bool passive;			/* the sender was, as an FD frame tells */
	u32 received, disturbed;
};

void can_bus_make(void);
void can_bus_free(void);

/*
 * Around each change of a channel: between the two calls, can_lock is held and
 * the buses have got to the present, so what has been on the wire so far was
 * judged by the state from before the change.
 */
void can_change_begin(void);
void can_change_end(void);
/* Between can_change_begin() and can_change_end(): drops the frames that wait. */
void can_drop_frames(struct can_channel *channel);
/* Likewise: sets the error counters and what follows from them. */
void can_set_errors(struct can_channel *channel, u16 tx_errors, u16 rx_errors);

/*
 * Takes a frame for sending and stamps it; false when the channel is down or
 * all its slots are taken. Soft interrupts are off.
 */
bool can_bus_queue(struct can_channel *channel, const struct can_slot *slot);
/* Whether all slots are taken, at this moment of the wire. Soft interrupts are off. */
bool can_bus_is_full(struct can_channel *channel);

/* Whether the channel hears the wire. */
static inline bool can_is_on_bus(const struct can_channel *channel)
{
	return channel->up && channel->enabled && !channel->bus_off && channel->bit_ns;
}

/* Whether both understand the frame: the data rate counts when it switches to it. */
static inline bool can_same_rates(const struct can_channel *a, const struct can_channel *b,
				  const struct can_wire_frame *wire)
{
	bool switched = wire->fd && wire->frame.flags & CANFD_BRS;

	return a->bit_ns == b->bit_ns && (!switched || a->data_bit_ns == b->data_bit_ns);
}

/* The wire of each channel, 0 to 5: those with the same number share it. */
void can_wiring(u8 wire_of[CAN_CHANNELS]);
void can_set_wiring(const u8 wire_of[CAN_CHANNELS]);

/* ---- vboard_can_net.c ----------------------------------------------------- */

struct can_channel *can_net_make(unsigned int index);
void can_net_free(struct can_channel *channel);
/* Whether that interface is a channel all of whose slots are taken. Soft interrupts are off. */
bool can_net_is_full(struct net *net, int ifindex);
/* The rest is called with can_lock held. */
void can_net_sent(struct can_channel *channel, struct can_slot *slot);
void can_net_dropped(struct can_channel *channel, struct can_slot *slot);
/* @passive: the sender is error-passive, as the frame itself tells if it is an FD frame. */
void can_net_deliver(struct can_channel *channel, const struct can_wire_frame *wire, bool passive);
void can_net_errors_changed(struct can_channel *channel);

/* ---- vboard_can_port.c ----------------------------------------------------- */

int can_port_make(struct can_channel *channel);
void can_port_free(struct can_channel *channel);

/* ---- vboard_can_regs.c ----------------------------------------------------- */

/* A bit timing in counts from 1, as written to /dev/norvane_can<n>. */
struct can_timing {
	s32 brp, sjw, sg1, sg2;
};

static inline u32 can_bit_ns(const struct can_timing *timing)
{
	return timing->brp * (1 + timing->sg1 + timing->sg2) * CAN_CLOCK_NS;
}

int can_regs_make(void);
void can_regs_free(void);
/* Takes up what the registers say, at once; process or soft interrupt context. */
void can_regs_apply(void);
void can_regs_enable(unsigned int index, bool enable);
/* @data may be NULL: the channel has no data rate then. */
void can_regs_set_timing(unsigned int index, const struct can_timing *nominal,
			 const struct can_timing *data);
/* First word of the receive buffer. */
u32 can_regs_waiting(unsigned int index);
void can_regs_set_waiting(unsigned int index, u32 word);
/* Bit 0: first terminating resistor, bit 1: second one. */
unsigned int can_regs_termination(unsigned int index);

/* ---- vboard_can_trace.c ---------------------------------------------------- */

int can_trace_make(struct dentry *control);
void can_trace_free(void);
/* Called with can_lock held. */
void can_trace_attempt(const struct can_attempt *attempt);

/* ---- vboard_can_capture.c -------------------------------------------------- */

void can_capture_make(struct dentry *control);
/* These are called with can_lock held. */
void can_capture_attempt(const struct can_attempt *attempt);
/* Tells of @count records of the error ring from slot @first on; the latest is of @time_ns. */
void can_capture_errors(struct can_channel *channel, u8 first, u8 count, u64 time_ns);

/* ---- vboard_can_errors.c --------------------------------------------------- */

int can_errors_make(struct dentry *control);
void can_errors_free(void);
/* Maps the channel's error ring for an application. */
int can_errors_map(struct can_channel *channel, struct vm_area_struct *vma);
/* These are called with can_lock held. */
void can_errors_attempt(const struct can_attempt *attempt, u64 time_ns);
void can_errors_bus_off(struct can_channel *channel);
/* Announces the records that have been written since the last time. */
void can_errors_announce(struct can_channel *channel);
void can_errors_announce_all(void);

/* ---- vboard_can_bcm.c ------------------------------------------------------ */

int can_bcm_make(struct dentry *control);
void can_bcm_free(void);
/* Whether a broadcast manager socket has sent this. */
bool can_bcm_owns(const struct sk_buff *skb);

#endif
