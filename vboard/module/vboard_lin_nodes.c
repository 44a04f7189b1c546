// SPDX-License-Identifier: GPL-2.0
/*
 * Other nodes on the LIN channels' wires, and what goes wrong there.
 *
 * Channels are 0 and 1, identifiers 0x00 to 0x3f without parity, hexadecimal or
 * decimal, data is hexadecimal. What is said of a channel's wire holds for the
 * whole cluster while the two are joined.
 *
 * Control files:
 *   responses  one line each, "lin0 own 0x12 1122AABB" or "lin0 node ...": what
 *              the channel, and what other nodes of its wire answer. Those of
 *              nodes end with "enhanced" or "classic"
 *   node       write "<channel> <id> <data> [classic]": another node of that wire
 *              answers so from now on; "<channel> <id> none": no longer
 *   header     write "<channel> <id> [<bit rate>]": another commander sends a
 *              header, at the channel's rate unless said, or 19200; ENOBUFS when
 *              too many wait
 *   wakeup     write "<channel> [<us>]": another node sends a wake-up pulse of
 *              that length, 250 us unless said
 *   fault      one line a channel, "lin0 checksum 3 0x12": kind, how many frames
 *              are still to have it, and of which identifier or "any"; write
 *              "<channel> <kind> <count> [<id>]", the kind one of
 *                response  nobody answers
 *                checksum  of the response, inverted
 *                parity    of the identifier
 *                sync      a sync byte of 0x54
 *                framing   the first byte of the data without its stop bit
 *                bit       the first bit of the data comes out inverted
 */
#include <linux/kernel.h>
#include <linux/string.h>

#include "vboard_lin.h"

#define DEFAULT_RATE 19200
#define WAKEUP_US 250
#define WAKEUP_MAX_US 65535

/* ---- what other nodes do ----------------------------------------------------------------- */

/* These take the next word, or fail. */
static struct lin_channel *parse_channel(char **text)
{
	char *word = strsep(text, " ");
	unsigned int index;

	if (!word || kstrtouint(word, 10, &index) || index >= LIN_CHANNELS)
		return NULL;
	return lin_channels[index];
}

static bool parse_id(char **text, unsigned int *id)
{
	char *word = strsep(text, " ");

	return word && !kstrtouint(word, 0, id) && *id < LIN_IDS;
}

static void show_responses(struct seq_file *to, unsigned int channel, const char *whose,
			   const struct lin_response *responses, bool with_checksum)
{
	unsigned int id;
	u8 i;

	for (id = 0; id < LIN_IDS; id++) {
		if (!responses[id].is_set)
			continue;
		seq_printf(to, "lin%u %s 0x%02X ", channel, whose, id);
		for (i = 0; i < responses[id].len; i++)
			seq_printf(to, "%02X", responses[id].data[i]);
		if (with_checksum)
			seq_puts(to, responses[id].classic ? " classic" : " enhanced");
		seq_putc(to, '\n');
	}
}

static int responses_show(struct seq_file *to, void *owner)
{
	unsigned int i;

	lin_change_begin();
	for (i = 0; i < LIN_CHANNELS; i++) {
		show_responses(to, i, "own", lin_channels[i]->responses, false);
		show_responses(to, i, "node", lin_channels[i]->nodes, true);
	}
	lin_change_end();
	return 0;
}

static int node_store(char *text, void *owner)
{
	struct lin_channel *channel = parse_channel(&text);
	struct lin_response response = {};
	char *data, *checksum;
	unsigned int id;
	size_t digits;

	if (!channel || !parse_id(&text, &id))
		return -EINVAL;
	data = strsep(&text, " ");
	checksum = strsep(&text, " ");
	if (!data || text || (checksum && strcmp(checksum, "classic")))
		return -EINVAL;
	if (strcmp(data, "none")) {
		digits = strlen(data);
		if (!digits || digits % 2 || digits / 2 > LIN_DATA_MAX ||
		    hex2bin(response.data, data, digits / 2))
			return -EINVAL;
		response.is_set = true;
		response.len = digits / 2;
		response.classic = checksum;
	}
	lin_change_begin();
	channel->nodes[id] = response;
	lin_change_end();
	return 0;
}

static int header_store(char *text, void *owner)
{
	struct lin_channel *channel = parse_channel(&text);
	struct lin_slot slot;
	unsigned int id, rate;
	bool taken;

	if (!channel || !parse_id(&text, &id))
		return -EINVAL;
	if (text && (kstrtouint(text, 10, &rate) || !lin_rate_is_good(rate)))
		return -EINVAL;
	lin_change_begin();
	if (!text)
		rate = channel->bitrate ?: DEFAULT_RATE;
	slot = lin_net_header(id, rate);
	taken = lin_bus_push(&channel->other, &slot);
	lin_change_end();
	return taken ? 0 : -ENOBUFS;
}

static int wakeup_store(char *text, void *owner)
{
	struct lin_channel *channel = parse_channel(&text);
	unsigned int us = WAKEUP_US;

	if (!channel || (text && kstrtouint(text, 10, &us)) || !us || us > WAKEUP_MAX_US)
		return -EINVAL;
	lin_change_begin();
	lin_bus_pulses(&channel->other, 1, (u64)us * NSEC_PER_USEC, 0);
	lin_change_end();
	return 0;
}

/* ---- faults --------------------------------------------------------------------------- */

static const char *const faults[] = {
	[LIN_FAULT_NONE] = "none",
	[LIN_FAULT_RESPONSE] = "response",
	[LIN_FAULT_CHECKSUM] = "checksum",
	[LIN_FAULT_PARITY] = "parity",
	[LIN_FAULT_SYNC] = "sync",
	[LIN_FAULT_FRAMING] = "framing",
	[LIN_FAULT_BIT] = "bit",
};

static int fault_show(struct seq_file *to, void *owner)
{
	unsigned int i;

	lin_change_begin();
	for (i = 0; i < LIN_CHANNELS; i++) {
		const struct lin_channel *channel = lin_channels[i];

		if (!channel->faults)
			continue;
		seq_printf(to, "lin%u %s %u ", i, faults[channel->fault], channel->faults);
		if (channel->fault_id < 0)
			seq_puts(to, "any\n");
		else
			seq_printf(to, "0x%02X\n", channel->fault_id);
	}
	lin_change_end();
	return 0;
}

static int fault_store(char *text, void *owner)
{
	struct lin_channel *channel = parse_channel(&text);
	char *kind = strsep(&text, " ");
	char *count = strsep(&text, " ");
	int fault = kind ? match_string(faults, ARRAY_SIZE(faults), kind) : -EINVAL;
	unsigned int number, id;
	bool any = !text;

	if (!channel || fault <= LIN_FAULT_NONE || !count || kstrtouint(count, 10, &number) ||
	    (!any && (!parse_id(&text, &id) || text)))
		return -EINVAL;
	lin_change_begin();
	channel->fault = fault;
	channel->faults = number;
	channel->fault_id = any ? -1 : (int)id;
	lin_change_end();
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "responses", .show = responses_show },
	{ .name = "node", .store = node_store },
	{ .name = "header", .store = header_store },
	{ .name = "wakeup", .store = wakeup_store },
	{ .name = "fault", .show = fault_show, .store = fault_store },
};

void lin_nodes_make(struct dentry *control)
{
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
}
