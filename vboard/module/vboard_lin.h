/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The two LIN channels between their files:
 *
 *   vboard_lin.c          the device: makes the channels, control files
 *   vboard_lin_wire.h     the records that the application and the driver exchange
 *   vboard_lin_net.c      LIN0 and LIN1, for frames to send and news of the bus
 *   vboard_lin_char.c     /dev/LIN0_CHAR and /dev/LIN1_CHAR, the operations
 *   vboard_lin_records.c  the 100 records that these devices map
 *   vboard_lin_bus.c      the clusters: who sends, who answers, who hears it
 *   vboard_lin_frame.c    the course of a frame: header, response, end
 *   vboard_lin_bits.c     a frame on the wire, bit by bit
 *   vboard_lin_nodes.c    other nodes, and faults: control files
 *   vboard_lin_trace.c    what the clusters saw
 *
 * Times are nanoseconds of the kernel's monotonic clock, unless said otherwise.
 */
#ifndef VBOARD_LIN_H
#define VBOARD_LIN_H

#include <linux/bitmap.h>
#include <linux/hrtimer.h>
#include <linux/math64.h>
#include <linux/netdevice.h>
#include <linux/spinlock.h>
#include <linux/time64.h>
#include <linux/types.h>

#include "vboard.h"
#include "vboard_can_uplink.h"
#include "vboard_lin_wire.h"

#define LIN_CHANNELS 2
#define LIN_IDS 64
#define LIN_SLOTS 16U			/* frames that a station holds for sending */
#define LIN_RATE_MIN 1000		/* bit/s */
#define LIN_RATE_MAX 20000
#define LIN_REGISTERS 64

/* The diagnostic frames, whose checksum is always the classic one. */
#define LIN_ID_REQUEST 0x3c
#define LIN_ID_REPLY 0x3d

/* Who sends something. */
enum lin_sender { LIN_SENDER_0, LIN_SENDER_1, LIN_SENDER_NODE, LIN_SENDER_NONE };

/* ---- a frame on the wire --------------------------------------------------- */

/* The fields of a frame, as lin_disturb.field counts them. */
enum lin_field {
	LIN_FIELD_BREAK,
	LIN_FIELD_SYNC,
	LIN_FIELD_PID,
	LIN_FIELD_DATA,			/* of the first byte; those of the others follow */
	LIN_FIELD_CHECKSUM = LIN_FIELD_DATA + LIN_DATA_MAX,
	LIN_FIELDS,
};

enum lin_level { LIN_LEVEL_DOMINANT, LIN_LEVEL_RECESSIVE, LIN_LEVEL_INVERTED, LIN_LEVELS };

/* Times of a frame in bits, those of the response at the response's rate. */
struct lin_timing {
	u8 break_bits, delimiter_bits, pid_space;
	u8 spaces[LIN_DATA_MAX + 1];	/* before each byte of the data, and the checksum */
	u32 header_rate, response_rate;	/* bit/s */
};

#define LIN_BYTE_BITS 10
#define LIN_BITS_MAX (3 * U8_MAX + 2 * LIN_BYTE_BITS + 9 * (U8_MAX + LIN_BYTE_BITS))

/* The bits that a frame has put on the wire so far; a set bit is recessive. */
struct lin_wire {
	DECLARE_BITMAP(bits, LIN_BITS_MAX);
	u16 count;
	u16 header_bits;
	u16 fields[LIN_FIELDS];		/* where each field begins ... */
	u16 present;			/* ... if its bit is set here */
	u8 len;				/* bytes of the response without the checksum */
};

/* What a node that is on the wire at the right rates reads. */
struct lin_reading {
	u32 errors;			/* LIN_ERROR_..., but for the checksum and the bits */
	u8 pid, len, checksum;
	u8 data[LIN_DATA_MAX];
};

u8 lin_pid(u8 id);
/* @classic: without the identifier, which diagnostic frames never have in it. */
u8 lin_checksum(u8 pid, const u8 *data, u8 len, bool classic);
void lin_put_header(struct lin_wire *wire, const struct lin_timing *timing, u8 sync, u8 pid);
void lin_put_response(struct lin_wire *wire, const struct lin_timing *timing, const u8 *data,
		      u8 len, u8 checksum);
/*
 * Forces the level of @count bits, beginning @offset bits behind the begin of
 * @field, as far as they are among the bits from @from on. Returns whether the
 * field is there; sets *@changed if a bit has another level now.
 */
bool lin_force(struct lin_wire *wire, unsigned int from, enum lin_field field,
	       unsigned int offset, unsigned int count, enum lin_level level, bool *changed);
void lin_read(const struct lin_wire *wire, struct lin_reading *to);

static inline u64 lin_bits_ns(unsigned int bits, u32 rate)
{
	return div_u64((u64)bits * NSEC_PER_SEC, rate);
}

/* ---- channels ---------------------------------------------------------------- */

/* A response that somebody has ready for an identifier. */
struct lin_response {
	bool is_set;
	bool classic;			/* checksum */
	u8 len;
	u8 data[LIN_DATA_MAX];
	u8 spaces[LIN_DATA_MAX + 1];
	u32 rate;			/* bit/s; 0: that of the header */
};

/* A header that waits for the bus, with the response of the same station, if it is set. */
struct lin_slot {
	u64 queued_ns;
	u8 pid, sync, expected;		/* @expected: bytes that the response should have */
	struct lin_timing timing;
	struct lin_response response;
};

/* Wake-up pulses that are still to be sent. */
struct lin_pulses {
	u32 left;
	u64 due_ns;
	u64 length_ns, pause_ns;
};

/* Whoever can send a header or a wake-up pulse. */
struct lin_station {
	u32 head, tail;			/* free-running; head is the oldest slot */
	struct lin_slot slots[LIN_SLOTS];
	struct lin_pulses pulses;
};

enum lin_fault {
	LIN_FAULT_NONE,
	LIN_FAULT_RESPONSE,		/* nobody answers */
	LIN_FAULT_CHECKSUM,
	LIN_FAULT_PARITY,
	LIN_FAULT_SYNC,
	LIN_FAULT_FRAMING,		/* stop bit of the first byte of the data */
	LIN_FAULT_BIT,			/* first bit of the data */
};

struct lin_bus;

/* One channel and its stretch of wire. All fields are guarded by lin_lock unless said otherwise. */
struct lin_channel {
	unsigned int index;
	struct net_device *dev;		/* LIN<index>; constant */
	struct can_uplink uplink;
	bool up;			/* the net device is */

	enum lin_version version;
	enum lin_mode mode;
	enum power_supply supply;
	u32 bitrate;			/* 0: not set, and the channel hears no frames */
	u32 wakeup_us;
	bool open_rx;			/* tells of its records */
	u32 registers[LIN_REGISTERS];
	struct lin_disturb disturb;
	struct lin_response responses[LIN_IDS];	/* as a responder */

	struct lin_bus *bus;
	struct lin_station own;
	struct lin_station other;	/* what other nodes of this wire send */
	struct lin_response nodes[LIN_IDS];	/* what they answer */

	enum lin_fault fault;		/* of the next ... */
	u32 faults;			/* ... so many frames ... */
	int fault_id;			/* ... with this identifier; below 0, with any */

	struct lin_rx_detil *records;	/* pages that readers share; constant */
	u8 next_record;
	u64 headers, answers, received, silent, faulty, wakeups, aborted, refused, recorded,
	    told, disturbed;
};

extern struct lin_channel *lin_channels[LIN_CHANNELS];
extern spinlock_t lin_lock;		/* taken in process and soft interrupt context */

static inline bool lin_is_classic(const struct lin_channel *channel)
{
	return channel->version == LIN_1_3;
}

static inline bool lin_rate_is_good(u32 rate)
{
	return rate >= LIN_RATE_MIN && rate <= LIN_RATE_MAX;
}

/* ---- vboard_lin_bus.c --------------------------------------------------------- */

/* What was on a wire from @start_ns to @end_ns, for those who tell of it. */
struct lin_event {
	u64 queued_ns, start_ns, end_ns;
	u32 channels;			/* on the wire, a bit for each */
	enum lin_sender sender;		/* of the header, or of the pulse */
	enum lin_sender responder;
	bool is_pulse, is_short, is_aborted;
	bool header_changed, response_changed;	/* what the sender sent came out otherwise */
	const struct lin_timing *timing;	/* the rest is of frames only */
	const struct lin_wire *wire;
	struct lin_reading reading;
};

enum lin_phase { LIN_IDLE, LIN_HEADER, LIN_RESPONSE, LIN_PULSE };

/* A cluster. Guarded by lin_lock. */
struct lin_bus {
	struct hrtimer timer;
	u64 free_ns;			/* end of what was last on the wire */
	bool asleep;
	bool waked;			/* by the frame on the wire */

	enum lin_phase phase;
	u64 next_ns;			/* its end */
	u64 start_ns;
	enum lin_sender sender, responder;
	struct lin_slot slot;		/* the frame; of a pulse, only when it was due */
	struct lin_wire wire;
	enum lin_fault fault;
	bool header_changed, response_changed;
	u32 overridden;			/* channels whose disturbance the frame has had */
	u32 hearing;			/* channels that were there at its start and still are */
};

void lin_bus_make(void);
void lin_bus_free(void);
/*
 * Around each change: between the two calls, lin_lock is held, and the clusters
 * have got to the present by the state from before the change.
 */
void lin_change_begin(void);
void lin_change_end(void);
/* These are called between the two. */
static inline bool lin_bus_is_full(const struct lin_station *station)
{
	return station->tail - station->head >= LIN_SLOTS;
}
/* False when the station holds as many as it can. */
bool lin_bus_push(struct lin_station *station, const struct lin_slot *slot);
/* From now on, in the place of what was still to come. */
void lin_bus_pulses(struct lin_station *station, u32 count, u64 length_ns, u64 pause_ns);
/* What the station has not begun to send. */
void lin_bus_drop(struct lin_station *station);
/* The channel goes down: breaks off what it sends. */
void lin_bus_leave(struct lin_channel *channel);
bool lin_bus_is_joined(void);
void lin_bus_join(bool together);
/* What was on the wire, without what a frame has beyond a pulse. */
struct lin_event lin_event_of(const struct lin_bus *bus);

/* ---- vboard_lin_frame.c --------------------------------------------------------- */

/* These are called at the frame's begin, at the end of its header, and at its end. */
void lin_frame_begin(struct lin_bus *bus, const struct lin_slot *from);
void lin_frame_answer(struct lin_bus *bus);
void lin_frame_end(struct lin_bus *bus);
struct lin_event lin_frame_event(const struct lin_bus *bus);

/* ---- vboard_lin_net.c ----------------------------------------------------------- */

int lin_net_make(struct lin_channel *channel);
void lin_net_free(struct lin_channel *channel);
/* An ordinary header, for a response of as many as 8 bytes. */
struct lin_slot lin_net_header(u8 id, u32 rate);
/* These are called with lin_lock held. */
void lin_net_tell(struct lin_channel *channel, u8 pid, u8 record, bool received, u64 time_ns);
void lin_net_wake(struct lin_channel *channel);

/* ---- vboard_lin_char.c ------------------------------------------------------------ */

int lin_char_make(struct lin_channel *channel);
void lin_char_free(struct lin_channel *channel);
/* The state at module load; called between change begin and end. */
void lin_char_reset(struct lin_channel *channel);

/* ---- vboard_lin_records.c ---------------------------------------------------------- */

int lin_records_make(struct lin_channel *channel);
void lin_records_free(struct lin_channel *channel);
int lin_records_map(struct lin_channel *channel, struct vm_area_struct *vma);
/* Called with lin_lock held. */
void lin_records_add(struct lin_channel *channel, const struct lin_event *event);
void lin_records_clear(struct lin_channel *channel);

/* ---- vboard_lin_nodes.c ------------------------------------------------------------ */

void lin_nodes_make(struct dentry *control);

/* ---- vboard_lin_trace.c ------------------------------------------------------------ */

int lin_trace_make(struct dentry *control);
void lin_trace_free(void);
/* Called with lin_lock held. */
void lin_trace_add(const struct lin_event *event);

#endif
