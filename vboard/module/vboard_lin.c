// SPDX-License-Identifier: GPL-2.0
/*
 * The two LIN channels: their parts are put together here (vboard_lin.h says
 * which they are), and the control files that are about a channel as a whole.
 *
 * Control files (those of other nodes, of faults and of the trace are in their
 * own files):
 *   state      one line a channel, words "<name>=<value>" behind its name
 *   wiring     "0 1" at first, two clusters; write "0-1" or "01" to join them.
 *              What is on the wires meanwhile is broken off
 *   registers  one line for each that is not 0, "lin0 0x10 0x0000CAFE"
 *   reset      write 1: all as at module load, but for the counts, the trace and
 *              whether the channels are up
 */
#include <linux/module.h>
#include <linux/mm.h>

#include "vboard_lin.h"

/* ---- state ------------------------------------------------------------------------- */

static void show_state(struct seq_file *to, const struct lin_channel *channel)
{
	static const char *const versions[] = { "1.3", "2.0", "2.1", "2.2", "j2602" };

	seq_printf(to, "lin%u link=%s mode=%s version=%s power=%s bitrate=%u wakeup_long=%u ",
		   channel->index, channel->up ? "up" : "down",
		   channel->mode == COMMANDER ? "commander" : "responder",
		   versions[channel->version],
		   channel->supply == EXTERNAL ? "external" : "internal", channel->bitrate,
		   channel->wakeup_us);
	seq_printf(to, "open_rx=%d bus=%s disturb=%s waiting=%u next_record=%u ",
		   channel->open_rx, channel->bus->asleep ? "asleep" : "awake",
		   channel->disturb.on_off ? "on" : "off", channel->own.tail - channel->own.head,
		   channel->next_record);
	seq_printf(to, "headers=%llu answers=%llu received=%llu noresponse=%llu wakeups=%llu ",
		   channel->headers, channel->answers, channel->received, channel->silent,
		   channel->wakeups);
	seq_printf(to, "faulty=%llu disturbed=%llu aborted=%llu refused=%llu ", channel->faulty,
		   channel->disturbed, channel->aborted, channel->refused);
	seq_printf(to, "records=%llu told=%llu\n", channel->recorded, channel->told);
}

static int state_show(struct seq_file *to, void *owner)
{
	unsigned int i;

	lin_change_begin();
	for (i = 0; i < LIN_CHANNELS; i++)
		show_state(to, lin_channels[i]);
	lin_change_end();
	return 0;
}

static int registers_show(struct seq_file *to, void *owner)
{
	unsigned int i, k;

	lin_change_begin();
	for (i = 0; i < LIN_CHANNELS; i++)
		for (k = 0; k < LIN_REGISTERS; k++)
			if (lin_channels[i]->registers[k])
				seq_printf(to, "lin%u 0x%02X 0x%08X\n", i, (u32)(k * sizeof(u32)),
					   lin_channels[i]->registers[k]);
	lin_change_end();
	return 0;
}

/* ---- wiring -------------------------------------------------------------------------- */

static int wiring_show(struct seq_file *to, void *owner)
{
	seq_puts(to, lin_bus_is_joined() ? "0-1\n" : "0 1\n");
	return 0;
}

static int wiring_store(char *text, void *owner)
{
	bool together = !strcmp(text, "0-1") || !strcmp(text, "01");

	if (!together && strcmp(text, "0 1"))
		return -EINVAL;
	lin_change_begin();
	lin_bus_join(together);
	lin_change_end();
	return 0;
}

/* ---- reset ---------------------------------------------------------------------------- */

static int reset_store(char *text, void *owner)
{
	unsigned int i;

	if (strcmp(text, "1"))
		return -EINVAL;
	lin_change_begin();
	lin_bus_join(false);
	for (i = 0; i < LIN_CHANNELS; i++) {
		struct lin_channel *channel = lin_channels[i];

		lin_bus_leave(channel);
		lin_bus_drop(&channel->other);
		lin_net_wake(channel);
		lin_char_reset(channel);
		lin_records_clear(channel);
		memset(channel->nodes, 0, sizeof(channel->nodes));
		channel->faults = 0;
		channel->bus->asleep = false;
	}
	lin_change_end();
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "state", .show = state_show },
	{ .name = "wiring", .show = wiring_show, .store = wiring_store },
	{ .name = "registers", .show = registers_show },
	{ .name = "reset", .store = reset_store },
};

/* ---- making ------------------------------------------------------------------------------ */

/* How far the making has got; taken down in the opposite order. */
static unsigned int channels_made, links_made, chars_made;

static void take_down(void)
{
	unsigned int i;

	while (chars_made)
		lin_char_free(lin_channels[--chars_made]);
	while (links_made)
		lin_net_free(lin_channels[--links_made]);
	lin_change_begin();
	for (i = 0; i < channels_made; i++)
		lin_bus_drop(&lin_channels[i]->other);
	lin_change_end();
	lin_bus_free();
}

static void free_channels(void)
{
	while (channels_made) {
		lin_records_free(lin_channels[--channels_made]);
		kvfree(lin_channels[channels_made]);
	}
}

static int make_channel(unsigned int index)
{
	struct lin_channel *channel = kvzalloc(sizeof(*channel), GFP_KERNEL);
	int err;

	if (!channel)
		return -ENOMEM;
	channel->index = index;
	err = lin_records_make(channel);
	if (err) {
		kvfree(channel);
		return err;
	}
	lin_channels[index] = channel;
	return 0;
}

static int make_faces(void)
{
	int err = 0;

	while (!err && links_made < LIN_CHANNELS) {
		err = lin_net_make(lin_channels[links_made]);
		links_made += !err;
	}
	while (!err && chars_made < LIN_CHANNELS) {
		err = lin_char_make(lin_channels[chars_made]);
		chars_made += !err;
	}
	return err;
}

static int lin_init(struct dentry *control)
{
	int err = 0;

	while (!err && channels_made < LIN_CHANNELS) {
		err = make_channel(channels_made);
		channels_made += !err;
	}
	if (err)
		goto free_channels;
	err = lin_trace_make(control);
	if (err)
		goto free_channels;
	lin_bus_make();
	err = make_faces();
	if (err)
		goto take_down;
	lin_nodes_make(control);
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	return 0;

take_down:
	take_down();
	lin_trace_free();
free_channels:
	free_channels();
	return err;
}

static void lin_exit(void)
{
	take_down();
	lin_trace_free();
	free_channels();
}

const struct vboard_device vboard_lin = {
	.name = "lin",
	.init = lin_init,
	.exit = lin_exit,
};
