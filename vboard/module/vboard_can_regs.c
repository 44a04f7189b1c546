// SPDX-License-Identifier: GPL-2.0
/*
 * The registers of the CAN cores.
 *
 * Protocol core of channel n, at 0x80000000 + (n << 16):
 *
 *   0x00  bit 0  software reset, clears itself
 *         bit 1  core enable
 *   0x04  bit 2  listen-only mode
 *   0x08, 0x0C   nominal bit timing, values minus 1 (fields: see pack_*)
 *   0x10         error counters: transmit in bits 0 to 7, receive in 8 to 15
 *   0x18  bit 0  1 in configuration mode, that is while the core is not enabled
 *         bits 7 to 8  error state: 0 error-active, 1 error-passive, 2 bus-off
 *   0x88, 0x8C   data bit timing, and the secondary sample point, which is kept
 *                and has no effect
 *   0x2100       first word of the receive buffer: not 0 while a frame waits there
 *
 * The port core's block, 0x81000000 + (n << 15), has no life of its own but the
 * time counter (vboard_regs.c). Block shared by all channels, at 0x82000000:
 *
 *   0x00  bit n  channel n is on the bus: up, enabled, not bus-off
 *   0x04         terminating resistors, bit n and bit n + 6: kept and shown
 *
 * Everything else keeps what is written. All is memory, which cannot react:
 * the beat of the time counter looks what was written, each 200 us by default,
 * and that is the delay of all reactions. Timing is taken from the registers;
 * a pair of timing registers that are both 0 means no timing.
 *
 * A reset clears the core's registers and its frames. Who asks for one clears
 * the enable bit, sets the reset bit, and waits for configuration mode. So the
 * core tells configuration mode only when the reset is done, or when it has
 * been idle for IDLE_BEATS. A reset of a core that has told configuration mode
 * already is different: the application does not wait there and goes on to
 * write at once, and memory cannot tell what was written before the reset from
 * what was written after it. Such a reset clears the frames, the error counters
 * and the receive buffer, and leaves the settings alone.
 */
#include <linux/bitfield.h>
#include <linux/bitops.h>
#include <linux/interrupt.h>
#include <linux/io.h>
#include <linux/rtnetlink.h>

#include "vboard_can.h"

#define CORE_BLOCKS 0x80000000UL
#define CORE_SIZE 0x10000UL
#define SHARED_BLOCK 0x82000000UL
#define SHARED_SIZE 0x100UL

#define CORE_CONTROL 0x00
#define CONTROL_RESET 0
#define CONTROL_ENABLE 1
#define CORE_MODE 0x04
#define MODE_LISTEN 2
#define CORE_NOMINAL_BRP 0x08
#define CORE_NOMINAL_TIMING 0x0C
#define CORE_ERRORS 0x10
#define CORE_STATUS 0x18
#define STATUS_CONFIG BIT(0)
#define STATUS_ERROR_STATE GENMASK(8, 7)
#define CORE_DATA_BRP 0x88
#define CORE_DATA_TIMING 0x8C
#define CORE_SETTINGS_SIZE 0x100	/* registers that a reset clears */
#define CORE_RECEIVE 0x2100

#define NOMINAL_SG1 GENMASK(7, 0)
#define NOMINAL_SG2 GENMASK(14, 8)
#define NOMINAL_SJW GENMASK(22, 16)
#define DATA_SG1 GENMASK(4, 0)
#define DATA_SG2 GENMASK(11, 8)
#define DATA_SJW GENMASK(19, 16)
#define BRP GENMASK(7, 0)

#define SHARED_STATUS 0x00
#define SHARED_TERMINATION 0x04

#define IDLE_BEATS 5

/* The registers whose change is taken up. */
static const u16 watched[] = {
	CORE_CONTROL, CORE_MODE, CORE_NOMINAL_BRP, CORE_NOMINAL_TIMING,
	CORE_DATA_BRP, CORE_DATA_TIMING,
};

/* Used by the beat alone. */
static struct core_view {
	u32 seen[ARRAY_SIZE(watched)];
	u32 status, errors;		/* as last written */
	unsigned int idle_beats;	/* without the enable bit, in a row */
} views[CAN_CHANNELS];
static u32 shared_status;

static void __iomem *cores, *shared;
static unsigned long resets;		/* a bit for each channel whose reset is to be taken up */

static void __iomem *core(unsigned int index)
{
	return cores + index * CORE_SIZE;
}

/* The control register is written from both sides, so only its bits are. */
static unsigned long *control_of(unsigned int index)
{
	return (unsigned long __force *)(core(index) + CORE_CONTROL);
}

/* ---- the beat: hard interrupt context -------------------------------------- */

static void write_if_new(u32 value, u32 *written, void __iomem *to)
{
	if (value != *written) {
		*written = value;
		writel(value, to);
	}
}

static void reset_core(unsigned int index, struct core_view *view)
{
	if (view->status & STATUS_CONFIG) {
		clear_bit(CONTROL_RESET, control_of(index));
	} else {
		memset_io(core(index), 0, CORE_SETTINGS_SIZE);
		view->status = 0;
		view->errors = 0;
	}
	writel(0, core(index) + CORE_RECEIVE);
	view->idle_beats = IDLE_BEATS;
	set_bit(index, &resets);
}

static u32 status_of(unsigned int index, const struct core_view *view)
{
	const struct can_channel *channel = can_channels[index];
	unsigned int errors = max(READ_ONCE(channel->tx_errors), READ_ONCE(channel->rx_errors));
	unsigned int state = READ_ONCE(channel->bus_off) ? 2 : errors >= 128 ? 1 : 0;

	return FIELD_PREP(STATUS_ERROR_STATE, state) |
	       (view->idle_beats >= IDLE_BEATS ? STATUS_CONFIG : 0);
}

/* Returns whether something is to be taken up. */
static bool look_at_core(unsigned int index)
{
	const struct can_channel *channel = can_channels[index];
	struct core_view *view = &views[index];
	void __iomem *registers = core(index);
	bool changed = false;
	size_t i;

	if (readl(registers + CORE_CONTROL) & BIT(CONTROL_RESET)) {
		reset_core(index, view);
		changed = true;
	}
	for (i = 0; i < ARRAY_SIZE(watched); i++) {
		u32 value = readl(registers + watched[i]);

		changed |= value != view->seen[i];
		view->seen[i] = value;
	}
	if (view->seen[0] & BIT(CONTROL_ENABLE))
		view->idle_beats = 0;
	else if (view->idle_beats < IDLE_BEATS)
		view->idle_beats++;
	write_if_new(READ_ONCE(channel->tx_errors) % 256 | READ_ONCE(channel->rx_errors) % 256 << 8,
		     &view->errors, registers + CORE_ERRORS);
	write_if_new(status_of(index, view), &view->status, registers + CORE_STATUS);
	return changed;
}

static void take_up(struct tasklet_struct *unused)
{
	can_regs_apply();
}

static DECLARE_TASKLET(take_up_tasklet, take_up);

static void on_beat(void)
{
	bool changed = false;
	u32 on_bus = 0;
	unsigned int i;

	for (i = 0; i < CAN_CHANNELS; i++) {
		const struct can_channel *channel = can_channels[i];

		changed |= look_at_core(i);
		if (READ_ONCE(channel->up) && READ_ONCE(channel->enabled) &&
		    !READ_ONCE(channel->bus_off))
			on_bus |= BIT(i);
	}
	write_if_new(on_bus, &shared_status, shared + SHARED_STATUS);
	if (changed)
		tasklet_schedule(&take_up_tasklet);
}

/* ---- what the channels are told ------------------------------------------- */

/* 0 for no timing. */
static u32 nominal_bit_ns(void __iomem *registers)
{
	u32 brp = readl(registers + CORE_NOMINAL_BRP);
	u32 timing = readl(registers + CORE_NOMINAL_TIMING);
	struct can_timing t = {
		.brp = FIELD_GET(BRP, brp) + 1,
		.sg1 = FIELD_GET(NOMINAL_SG1, timing) + 1,
		.sg2 = FIELD_GET(NOMINAL_SG2, timing) + 1,
	};

	return FIELD_GET(BRP, brp) || timing ? can_bit_ns(&t) : 0;
}

static u32 data_bit_ns(void __iomem *registers)
{
	u32 brp = readl(registers + CORE_DATA_BRP);
	u32 timing = readl(registers + CORE_DATA_TIMING);
	struct can_timing t = {
		.brp = FIELD_GET(BRP, brp) + 1,
		.sg1 = FIELD_GET(DATA_SG1, timing) + 1,
		.sg2 = FIELD_GET(DATA_SG2, timing) + 1,
	};

	return FIELD_GET(BRP, brp) || timing ? can_bit_ns(&t) : 0;
}

void can_regs_apply(void)
{
	unsigned int i;

	can_change_begin();
	for (i = 0; i < CAN_CHANNELS; i++) {
		struct can_channel *channel = can_channels[i];
		struct can_priv *priv = netdev_priv(channel->dev);
		void __iomem *registers = core(i);
		u32 mode = priv->ctrlmode & ~CAN_CTRLMODE_LISTENONLY;

		if (test_and_clear_bit(i, &resets)) {
			can_drop_frames(channel);
			can_set_errors(channel, 0, 0);
		}
		WRITE_ONCE(channel->enabled, readl(registers + CORE_CONTROL) & BIT(CONTROL_ENABLE));
		WRITE_ONCE(channel->listening, readl(registers + CORE_MODE) & BIT(MODE_LISTEN));
		channel->bit_ns = nominal_bit_ns(registers);
		channel->data_bit_ns = data_bit_ns(registers);
		WRITE_ONCE(priv->ctrlmode, mode | (channel->listening ? CAN_CTRLMODE_LISTENONLY : 0));
	}
	can_change_end();
}

void can_regs_enable(unsigned int index, bool enable)
{
	if (enable)
		set_bit(CONTROL_ENABLE, control_of(index));
	else
		clear_bit(CONTROL_ENABLE, control_of(index));
}

void can_regs_set_timing(unsigned int index, const struct can_timing *nominal,
			 const struct can_timing *data)
{
	void __iomem *registers = core(index);
	u32 sample_point = readl(registers + CORE_DATA_BRP) & ~BRP;

	writel(nominal->brp - 1, registers + CORE_NOMINAL_BRP);
	writel(FIELD_PREP(NOMINAL_SG1, nominal->sg1 - 1) | FIELD_PREP(NOMINAL_SG2, nominal->sg2 - 1) |
	       FIELD_PREP(NOMINAL_SJW, nominal->sjw - 1), registers + CORE_NOMINAL_TIMING);
	writel(sample_point | (data ? data->brp - 1 : 0), registers + CORE_DATA_BRP);
	writel(data ? FIELD_PREP(DATA_SG1, data->sg1 - 1) | FIELD_PREP(DATA_SG2, data->sg2 - 1) |
		      FIELD_PREP(DATA_SJW, data->sjw - 1) : 0, registers + CORE_DATA_TIMING);
	can_regs_apply();
}

u32 can_regs_waiting(unsigned int index)
{
	return readl(core(index) + CORE_RECEIVE);
}

void can_regs_set_waiting(unsigned int index, u32 word)
{
	writel(word, core(index) + CORE_RECEIVE);
}

unsigned int can_regs_termination(unsigned int index)
{
	u32 bits = readl(shared + SHARED_TERMINATION);

	return (bits >> index & 1) | (bits >> (index + CAN_CHANNELS) & 1) << 1;
}

int can_regs_make(void)
{
	unsigned int i;

	cores = ioremap(CORE_BLOCKS, CAN_CHANNELS * CORE_SIZE);
	shared = ioremap(SHARED_BLOCK, SHARED_SIZE);
	if (!cores || !shared) {
		if (cores)
			iounmap(cores);
		if (shared)
			iounmap(shared);
		return -ENOMEM;
	}
	memset(views, 0, sizeof(views));
	memset_io(shared, 0, SHARED_SIZE);
	shared_status = 0;
	resets = 0;
	for (i = 0; i < CAN_CHANNELS; i++) {
		memset_io(core(i), 0, CORE_SETTINGS_SIZE);
		writel(0, core(i) + CORE_RECEIVE);
	}
	vboard_set_beat(on_beat);
	return 0;
}

void can_regs_free(void)
{
	vboard_set_beat(NULL);
	tasklet_kill(&take_up_tasklet);
	iounmap(cores);
	iounmap(shared);
}
