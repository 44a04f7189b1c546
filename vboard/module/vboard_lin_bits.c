// SPDX-License-Identifier: GPL-2.0
/*
 * A LIN frame on the wire, bit by bit: what its senders put there, what
 * disturbs it, and what a node reads.
 *
 * A byte is a start bit, eight bits from the lowest on, and a stop bit. A node
 * looks for each field where it was sent, and does not lose its place by a
 * disturbed bit.
 */
#include <linux/kernel.h>
#include <linux/math64.h>

#include "vboard_lin.h"

#define BREAK_MIN_BITS 11	/* what a node takes for a break */
#define SYNC_BYTE 0x55
#define ID_MASK (LIN_IDS - 1)

u8 lin_pid(u8 id)
{
	u8 even = (id ^ id >> 1 ^ id >> 2 ^ id >> 4) & 1;
	u8 odd = ~(id >> 1 ^ id >> 3 ^ id >> 4 ^ id >> 5) & 1;

	return (id & ID_MASK) | even << 6 | odd << 7;
}

/* The inverted sum with carry. */
u8 lin_checksum(u8 pid, const u8 *data, u8 len, bool classic)
{
	u8 id = pid & ID_MASK;
	unsigned int sum = 0;
	u8 i;

	if (!classic && id != LIN_ID_REQUEST && id != LIN_ID_REPLY)
		sum = pid;
	for (i = 0; i < len; i++) {
		sum += data[i];
		sum -= sum > U8_MAX ? U8_MAX : 0;
	}
	return ~sum;
}

/* ---- sending ------------------------------------------------------------------ */

static void put(struct lin_wire *wire, bool recessive, unsigned int bits)
{
	if (recessive)
		bitmap_set(wire->bits, wire->count, bits);
	else
		bitmap_clear(wire->bits, wire->count, bits);
	wire->count += bits;
}

static void begin_field(struct lin_wire *wire, enum lin_field field)
{
	wire->fields[field] = wire->count;
	wire->present |= BIT(field);
}

static void put_byte(struct lin_wire *wire, enum lin_field field, u8 value)
{
	unsigned int bit;

	begin_field(wire, field);
	put(wire, false, 1);
	for (bit = 0; bit < 8; bit++)
		put(wire, value & BIT(bit), 1);
	put(wire, true, 1);
}

void lin_put_header(struct lin_wire *wire, const struct lin_timing *timing, u8 sync, u8 pid)
{
	memset(wire, 0, sizeof(*wire));
	begin_field(wire, LIN_FIELD_BREAK);
	put(wire, false, timing->break_bits);
	put(wire, true, timing->delimiter_bits);
	put_byte(wire, LIN_FIELD_SYNC, sync);
	put(wire, true, timing->pid_space);
	put_byte(wire, LIN_FIELD_PID, pid);
	wire->header_bits = wire->count;
}

void lin_put_response(struct lin_wire *wire, const struct lin_timing *timing, const u8 *data,
		      u8 len, u8 checksum)
{
	u8 i;

	for (i = 0; i < len; i++) {
		put(wire, true, timing->spaces[i]);
		put_byte(wire, LIN_FIELD_DATA + i, data[i]);
	}
	put(wire, true, timing->spaces[LIN_DATA_MAX]);
	put_byte(wire, LIN_FIELD_CHECKSUM, checksum);
	wire->len = len;
}

bool lin_force(struct lin_wire *wire, unsigned int from, enum lin_field field,
	       unsigned int offset, unsigned int count, enum lin_level level, bool *changed)
{
	unsigned int begin = wire->fields[field] + offset;
	unsigned int end = min_t(unsigned int, begin + count, wire->count);
	unsigned int bit;

	if (!(wire->present & BIT(field)))
		return false;
	for (bit = max(begin, from); bit < end; bit++) {
		bool was = test_bit(bit, wire->bits);
		bool is = level == LIN_LEVEL_INVERTED ? !was : level == LIN_LEVEL_RECESSIVE;

		__assign_bit(bit, wire->bits, is);
		*changed |= was != is;
	}
	return true;
}

/* ---- reading ---------------------------------------------------------------------- */

/* Whether the byte has its start and stop bit. */
static bool read_byte(const struct lin_wire *wire, enum lin_field field, u8 *value)
{
	unsigned int at = wire->fields[field];
	unsigned int bit;

	*value = 0;
	for (bit = 0; bit < 8; bit++)
		*value |= test_bit(at + 1 + bit, wire->bits) << bit;
	return !test_bit(at, wire->bits) && test_bit(at + LIN_BYTE_BITS - 1, wire->bits);
}

static bool is_header_good(const struct lin_wire *wire)
{
	unsigned int sync_at = wire->fields[LIN_FIELD_SYNC];
	u8 sync;

	return find_first_bit(wire->bits, wire->count) >= BREAK_MIN_BITS &&
	       test_bit(sync_at - 1, wire->bits) &&
	       read_byte(wire, LIN_FIELD_SYNC, &sync) && sync == SYNC_BYTE;
}

void lin_read(const struct lin_wire *wire, struct lin_reading *to)
{
	bool good;
	u8 i;

	memset(to, 0, sizeof(*to));
	if (!is_header_good(wire))
		to->errors |= LIN_ERROR_HEADER | LIN_ERROR_FRAMING;
	if (!read_byte(wire, LIN_FIELD_PID, &to->pid))
		to->errors |= LIN_ERROR_FRAMING;
	if (lin_pid(to->pid & ID_MASK) != to->pid)
		to->errors |= LIN_ERROR_PARITY;
	if (!wire->len) {
		to->errors |= LIN_ERROR_NO_RESPONSE;
		return;
	}
	to->len = wire->len;
	good = read_byte(wire, LIN_FIELD_CHECKSUM, &to->checksum);
	for (i = 0; i < wire->len; i++)
		good &= read_byte(wire, LIN_FIELD_DATA + i, &to->data[i]);
	if (!good)
		to->errors |= LIN_ERROR_FRAMING;
}
