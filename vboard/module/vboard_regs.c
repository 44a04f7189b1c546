// SPDX-License-Identifier: GPL-2.0
/*
 * Registers: the 100 MHz time counter.
 *
 * The register blocks are real memory at their real addresses, 0x80000000 to
 * 0x89ffffff, which the kernel option memmap=160M$0x80000000 keeps out of use.
 * The application and busybox devmem reach them through /dev/mem; what is
 * written there stays and can be read back. This file gives life to
 *
 *   0x81000024  counter, low word
 *   0x81000028  counter, high word
 *
 * which count 10 ns ticks of the kernel's monotonic clock since module load.
 * Memory cannot count by itself: timers write both words each counter_us
 * microseconds (module parameter), and that is the counter's resolution here.
 * The processors take turns. So who waits for a register to change by sleeping
 * waits for a timer of the same processor as the beat's, and cannot be served
 * late because another processor stands still, as an emulated one does at times.
 * Drivers of the board that stamp with this clock ask vboard_time_ns(), which
 * is exact. The high word is written first, so that a reader of low and then
 * high sees only what a real counter shows as well: a low word from before a
 * carry beside a high word from after it.
 *
 * The mapping is uncached-minus, as that of /dev/mem with O_SYNC is; another
 * type would make the kernel refuse one of the two.
 *
 * Control files:
 *   counter  reads "running 0x<16 digits>" or "frozen 0x<16 digits>";
 *            write "freeze [HEX]" or "run [HEX]" to stop or go on, at the
 *            value HEX or else at the present one
 */
#include <linux/hrtimer.h>
#include <linux/io.h>
#include <linux/math64.h>
#include <linux/module.h>
#include <linux/percpu.h>
#include <linux/smp.h>

#include "vboard.h"

#define TIME_BLOCK 0x81000000UL
#define TIME_BLOCK_SIZE 0x1000UL
#define COUNTER_LOW 0x24
#define COUNTER_HIGH 0x28
#define NS_PER_TICK 10

static unsigned int counter_us = 200;
module_param(counter_us, uint, 0444);
MODULE_PARM_DESC(counter_us, "period in which the counter's memory is written, 10 to 1000000 us");

static void __iomem *block;
static DEFINE_PER_CPU(struct hrtimer, beats);

static DEFINE_RAW_SPINLOCK(lock);	/* guards the four below and the two words */
static void (*also_on_beat)(void);
static bool frozen;
static u64 base_ticks;			/* the counter at base_ns, or for as long as it is frozen */
static u64 base_ns;			/* monotonic clock */

/* The counter at a moment, which may lie before it was last set. */
static u64 ticks_locked(u64 monotonic_ns)
{
	if (frozen)
		return base_ticks;
	if (monotonic_ns < base_ns)
		return base_ticks - div_u64(base_ns - monotonic_ns, NS_PER_TICK);
	return base_ticks + div_u64(monotonic_ns - base_ns, NS_PER_TICK);
}

static void write_words_locked(void)
{
	u64 ticks = ticks_locked(ktime_get_ns());

	writel(upper_32_bits(ticks), block + COUNTER_HIGH);
	writel(lower_32_bits(ticks), block + COUNTER_LOW);
}

u64 vboard_time_ns(void)
{
	return vboard_time_at(ktime_get_ns());
}

u64 vboard_time_at(u64 monotonic_ns)
{
	unsigned long flags;
	u64 ticks;

	raw_spin_lock_irqsave(&lock, flags);
	ticks = ticks_locked(monotonic_ns);
	raw_spin_unlock_irqrestore(&lock, flags);
	return ticks * NS_PER_TICK;
}

void vboard_set_beat(void (*beat)(void))
{
	unsigned long flags;

	raw_spin_lock_irqsave(&lock, flags);
	also_on_beat = beat;
	raw_spin_unlock_irqrestore(&lock, flags);
}

static ktime_t beat_times(unsigned int n)
{
	return ns_to_ktime((u64)counter_us * NSEC_PER_USEC * n);
}

static enum hrtimer_restart on_beat(struct hrtimer *timer)
{
	unsigned long flags;

	raw_spin_lock_irqsave(&lock, flags);
	write_words_locked();
	if (also_on_beat)
		also_on_beat();
	raw_spin_unlock_irqrestore(&lock, flags);
	hrtimer_forward_now(timer, beat_times(num_online_cpus()));
	return HRTIMER_RESTART;
}

static void start_beat(void *unused)
{
	struct hrtimer *beat = this_cpu_ptr(&beats);

	hrtimer_init(beat, CLOCK_MONOTONIC, HRTIMER_MODE_REL_PINNED_HARD);
	beat->function = on_beat;
	hrtimer_start(beat, beat_times(1 + smp_processor_id()), HRTIMER_MODE_REL_PINNED_HARD);
}

static int counter_show(struct seq_file *to, void *owner)
{
	unsigned long flags;
	bool is_frozen;
	u64 ticks;

	raw_spin_lock_irqsave(&lock, flags);
	is_frozen = frozen;
	ticks = ticks_locked(ktime_get_ns());
	raw_spin_unlock_irqrestore(&lock, flags);
	seq_printf(to, "%s 0x%016llx\n", is_frozen ? "frozen" : "running", ticks);
	return 0;
}

static int counter_store(char *text, void *owner)
{
	char *verb = strsep(&text, " ");
	bool freeze = !strcmp(verb, "freeze");
	unsigned long flags;
	u64 ticks = 0;
	u64 now_ns;

	if (!freeze && strcmp(verb, "run"))
		return -EINVAL;
	if (text && kstrtou64(text, 16, &ticks))
		return -EINVAL;

	raw_spin_lock_irqsave(&lock, flags);
	now_ns = ktime_get_ns();
	base_ticks = text ? ticks : ticks_locked(now_ns);
	base_ns = now_ns;
	frozen = freeze;
	write_words_locked();
	raw_spin_unlock_irqrestore(&lock, flags);
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "counter", .show = counter_show, .store = counter_store },
};

static int regs_init(struct dentry *control)
{
	if (counter_us < 10 || counter_us > USEC_PER_SEC) {
		pr_err("vboard: counter_us=%u: give 10 to 1000000\n", counter_us);
		return -EINVAL;
	}
	block = ioremap(TIME_BLOCK, TIME_BLOCK_SIZE);
	if (!block) {
		pr_err("vboard: no registers: boot with memmap=160M$0x80000000 and more RAM than that\n");
		return -ENOMEM;
	}
	base_ns = ktime_get_ns();
	on_each_cpu(start_beat, NULL, 1);
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	return 0;
}

static void regs_exit(void)
{
	unsigned int cpu;

	for_each_online_cpu(cpu)
		hrtimer_cancel(per_cpu_ptr(&beats, cpu));
	iounmap(block);
}

const struct vboard_device vboard_regs = {
	.name = "regs",
	.init = regs_init,
	.exit = regs_exit,
};
