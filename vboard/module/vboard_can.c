// SPDX-License-Identifier: GPL-2.0
/*
 * The six CAN channels: their parts are put together here (vboard_can.h says
 * which they are), and the control files that are about a channel as a whole.
 *
 * Control files (those of the trace, the packets, the errors and the broadcast
 * manager are in their own files):
 *   state    one line a channel, words "<name>=<value>" behind its name
 *   wiring   which channels share a wire, "0-1 2-3 4-5" at first; write the
 *            groups, a channel that is not named is alone
 *   errors   write "<channel> <transmit> <receive>": the error counters, 0 to
 *            255, or 256 to transmit for bus-off; ENETDOWN while it is down
 *   waiting  first word of each receive buffer; write "<channel> <hex>": not 0
 *            while a frame lies waiting there
 */
#include <linux/module.h>

#include "vboard_can.h"

#define BUS_OFF 256

static const char *error_state(enum can_state state)
{
	switch (state) {
	case CAN_STATE_ERROR_ACTIVE:
		return "error-active";
	case CAN_STATE_ERROR_WARNING:
		return "error-warning";
	case CAN_STATE_ERROR_PASSIVE:
		return "error-passive";
	case CAN_STATE_BUS_OFF:
		return "bus-off";
	default:
		return "stopped";
	}
}

static u32 rate(u32 bit_ns)
{
	return bit_ns ? NSEC_PER_SEC / bit_ns : 0;
}

static int state_show(struct seq_file *to, void *owner)
{
	unsigned int i;

	spin_lock_bh(&can_lock);
	for (i = 0; i < CAN_CHANNELS; i++) {
		const struct can_channel *channel = can_channels[i];
		const struct can_priv *priv = netdev_priv(channel->dev);

		seq_printf(to, "can%u link=%s port=%s mode=%s bitrate=%u dbitrate=%u state=%s ",
			   i, channel->up ? "up" : "down",
			   netif_running(channel->port) ? "up" : "down",
			   !channel->enabled ? "config" : channel->listening ? "listen" : "normal",
			   rate(channel->bit_ns), rate(channel->data_bit_ns),
			   error_state(priv->state));
		seq_printf(to, "tec=%u rec=%u selfack=%d termination=%u waiting=%u ",
			   channel->tx_errors, channel->rx_errors, channel->self_ack,
			   can_regs_termination(i), channel->tail - channel->head);
		seq_printf(to, "sent=%llu received=%llu noack=%llu disturbed=%llu aborted=%llu ",
			   channel->sent, channel->received, channel->unacknowledged,
			   channel->disturbed, channel->aborted);
		seq_printf(to, "faulty=%llu captured=%llu errors=%llu\n",
			   channel->faulty, channel->captured, channel->errors);
	}
	spin_unlock_bh(&can_lock);
	return 0;
}

/* Groups such as "0-1 2-3 4 5", each at the place of its first channel. */
static int wiring_show(struct seq_file *to, void *owner)
{
	u8 wire_of[CAN_CHANNELS];
	u32 shown = 0;
	unsigned int i, k;

	can_wiring(wire_of);
	for (i = 0; i < CAN_CHANNELS; i++) {
		if (shown & BIT(i))
			continue;
		seq_printf(to, "%s%u", i ? " " : "", i);
		for (k = i + 1; k < CAN_CHANNELS; k++) {
			if (wire_of[k] != wire_of[i])
				continue;
			seq_printf(to, "-%u", k);
			shown |= BIT(k);
		}
	}
	seq_putc(to, '\n');
	return 0;
}

/* A group's wire has the number of its first channel. */
static int wiring_store(char *text, void *owner)
{
	u8 wire_of[CAN_CHANNELS];
	u32 named = 0;
	char *group, *word;
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		wire_of[i] = i;
	while ((group = strsep(&text, " "))) {
		int wire = -1;

		if (!*group)
			continue;
		while ((word = strsep(&group, "-"))) {
			if (kstrtouint(word, 10, &i) || i >= CAN_CHANNELS || named & BIT(i))
				return -EINVAL;
			named |= BIT(i);
			wire = wire < 0 ? (int)i : wire;
			wire_of[i] = wire;
		}
	}
	can_set_wiring(wire_of);
	return 0;
}

static int errors_store(char *text, void *owner)
{
	unsigned int index, tx, rx;
	int err = -ENETDOWN;
	char more;

	if (sscanf(text, "%u %u %u%c", &index, &tx, &rx, &more) != 3 || index >= CAN_CHANNELS ||
	    tx > BUS_OFF || rx >= BUS_OFF)
		return -EINVAL;
	can_change_begin();
	if (can_channels[index]->up) {
		can_set_errors(can_channels[index], tx, rx);
		err = 0;
	}
	can_change_end();
	return err;
}

static int waiting_show(struct seq_file *to, void *owner)
{
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++)
		seq_printf(to, "can%u 0x%08x\n", i, can_regs_waiting(i));
	return 0;
}

static int waiting_store(char *text, void *owner)
{
	unsigned int index, word;
	char more;

	if (sscanf(text, "%u %x%c", &index, &word, &more) != 2 || index >= CAN_CHANNELS)
		return -EINVAL;
	can_regs_set_waiting(index, word);
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "state", .show = state_show },
	{ .name = "wiring", .show = wiring_show, .store = wiring_store },
	{ .name = "errors", .store = errors_store },
	{ .name = "waiting", .show = waiting_show, .store = waiting_store },
};

/* How far the making has got; taken down in the opposite order. */
static unsigned int channels_made, links_made, ports_made;

static void take_down(void)
{
	while (ports_made)
		can_port_free(can_channels[--ports_made]);
	while (links_made)
		unregister_candev(can_channels[--links_made]->dev);
}

static void free_channels(void)
{
	while (channels_made)
		can_net_free(can_channels[--channels_made]);
}

static int make_links(void)
{
	int err = 0;

	while (!err && links_made < CAN_CHANNELS) {
		err = register_candev(can_channels[links_made]->dev);
		links_made += !err;
	}
	while (!err && ports_made < CAN_CHANNELS) {
		err = can_port_make(can_channels[ports_made]);
		ports_made += !err;
	}
	return err;
}

static int can_init(struct dentry *control)
{
	int err = -ENOMEM;

	for (; channels_made < CAN_CHANNELS; channels_made++) {
		can_channels[channels_made] = can_net_make(channels_made);
		if (!can_channels[channels_made])
			goto free_channels;
	}
	can_bus_make();
	err = can_errors_make(control);
	if (err)
		goto free_channels;
	can_capture_make(control);
	err = can_trace_make(control);
	if (err)
		goto free_errors;
	err = can_regs_make();
	if (err)
		goto free_trace;
	err = can_bcm_make(control);
	if (err)
		goto free_regs;
	err = make_links();
	if (err)
		goto free_links;
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	return 0;

free_links:
	take_down();
	can_bcm_free();
free_regs:
	can_regs_free();
free_trace:
	can_bus_free();
	can_trace_free();
free_errors:
	can_errors_free();
free_channels:
	free_channels();
	return err;
}

static void can_exit(void)
{
	take_down();
	can_bcm_free();
	can_regs_free();
	can_bus_free();
	can_trace_free();
	can_errors_free();
	free_channels();
}

const struct vboard_device vboard_can = {
	.name = "can",
	.init = can_init,
	.exit = can_exit,
};
