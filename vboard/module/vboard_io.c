// SPDX-License-Identifier: GPL-2.0
/*
 * Digital inputs and outputs and the analogue converter, /dev/norvane_dio.
 *
 * Registers at 0x88000000, all plain memory:
 *
 *   0x00  bit n: output n + 1 is enabled
 *   0x04  bits 4n to 4n + 3: trigger of input n + 1, 3 on, else off
 *   0x08  bits 2n and 2n + 1: level field of output n + 1, 3 high, else low
 *   0x0C  bit n: output n + 1
 *   0x10  bits 0 to 30: period in milliseconds; bit 31: periodic samples
 *
 * Two outputs, four inputs, two channels of the converter. An output is high
 * when it is enabled, its level field is 3 and its bit is set.
 *
 * A sample is made for each period while bit 31 is set and the period is not 0,
 * the first one period after the register was written, and for each change of
 * an input whose trigger is on, whatever bit 31 is. Memory cannot react: the
 * period register is looked at each LOOK_MS, which is how late it may take
 * effect. A periodic sample that is made late has the time at which it was due,
 * and the levels of now.
 *
 * read(): one sample of 16 bytes, oldest first; EINVAL for a smaller buffer.
 * Waits for a sample; with O_NONBLOCK EAGAIN. poll(): EPOLLIN while a sample
 * waits. Up to RECORDS wait; what comes then is lost. Open files share the
 * samples, and nothing is kept while there is none.
 *
 *   0  u8   trigger: bit n for input n + 1, 0 for a periodic sample
 *   1  u8   inputs, bit n for input n + 1
 *   2  u8   outputs, bit n for output n + 1
 *   3  u8   0
 *   4  u16  converter channel 1, 0 to 65535 as the converter gives it
 *   6  u16  converter channel 2
 *   8  u64  device time, nanoseconds
 *
 * Control files:
 *   state   all of it, one "NAME VALUE" a line
 *   inputs  write "INPUT LEVEL": 1 to 4, 0 or 1
 *   adc     write "CHANNEL VALUE": 1 or 2, 0 to 65535
 *   fault   reads what is still to fail; write "short COUNT": so many samples
 *           are cut to 8 bytes, or "empty COUNT": the device is readable and so
 *           many reads give EAGAIN
 */
#include <linux/bitfield.h>
#include <linux/fs.h>
#include <linux/hrtimer.h>
#include <linux/io.h>
#include <linux/math64.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/uaccess.h>
#include <linux/wait.h>

#include "vboard.h"

#define IO_BLOCK 0x88000000UL
#define IO_BLOCK_SIZE 0x1000UL
#define OUTPUT_ENABLE 0x00
#define TRIGGER 0x04
#define OUTPUT_LEVEL 0x08
#define OUTPUT 0x0C
#define UPLOAD 0x10
#define UPLOAD_ON BIT(31)
#define UPLOAD_PERIOD GENMASK(30, 0)
#define REGISTERS_SIZE 0x14

#define OUTPUTS 2
#define INPUTS 4
#define CONVERTERS 2
#define RECORDS 256
#define SHORT_READ 8
#define LOOK_MS 4

struct record {
	u8 trigger;
	u8 inputs;
	u8 outputs;
	u8 reserved;
	u16 adc[CONVERTERS];
	u64 time;
};
static_assert(sizeof(struct record) == 16);

static void __iomem *block;
static struct hrtimer looker;
static DECLARE_WAIT_QUEUE_HEAD(readers);

static DEFINE_SPINLOCK(lock);		/* guards all below */
static struct record records[RECORDS];
static u32 put, taken;			/* of records, ever */
static u32 open_files;
static u8 inputs;
static u16 adc[CONVERTERS];
static u32 upload;			/* register as last seen */
static u64 next_due;			/* monotonic clock; of the next periodic sample */
static u32 short_reads, empty_reads;	/* still to fail */
static u64 periodic, triggered, lost;

static bool field_is_3(u32 word, unsigned int shift, u32 mask)
{
	return (word >> shift & mask) == 3;
}

static bool output_is_high(unsigned int n)
{
	return readl(block + OUTPUT_ENABLE) & BIT(n) && readl(block + OUTPUT) & BIT(n) &&
	       field_is_3(readl(block + OUTPUT_LEVEL), 2 * n, 3);
}

static bool trigger_is_on(unsigned int n)
{
	return field_is_3(readl(block + TRIGGER), 4 * n, 15);
}

static void put_locked(u8 trigger, u64 monotonic_ns)
{
	struct record *record = &records[put % RECORDS];
	unsigned int n;

	if (!open_files)
		return;
	if (put - taken == RECORDS) {
		lost++;
		return;
	}
	memset(record, 0, sizeof(*record));
	record->trigger = trigger;
	record->inputs = inputs;
	for (n = 0; n < OUTPUTS; n++)
		record->outputs |= output_is_high(n) ? BIT(n) : 0;
	memcpy(record->adc, adc, sizeof(adc));
	record->time = vboard_time_at(monotonic_ns);
	put++;
}

/* Makes the periodic samples that are due by now. */
static void sample_locked(u64 period_ns, u64 now)
{
	u64 due;

	if (now < next_due)
		return;
	due = div64_u64(now - next_due, period_ns) + 1;
	periodic += due;
	if (due > RECORDS) { /* more than can wait: the machine stood still */
		next_due += (due - RECORDS) * period_ns;
		lost += open_files ? due - RECORDS : 0;
		due = RECORDS;
	}
	for (; due; due--) {
		put_locked(0, next_due);
		next_due += period_ns;
	}
}

static enum hrtimer_restart look(struct hrtimer *timer)
{
	u64 now = ktime_get_ns();
	u64 next = now + LOOK_MS * NSEC_PER_MSEC;
	u32 word = readl(block + UPLOAD);
	u64 period_ns = FIELD_GET(UPLOAD_PERIOD, word) * NSEC_PER_MSEC;
	unsigned long flags;
	u32 was;

	spin_lock_irqsave(&lock, flags);
	was = put;
	if (word != upload) {
		upload = word;
		next_due = now + period_ns;
	}
	if (word & UPLOAD_ON && period_ns) {
		sample_locked(period_ns, now);
		next = min(next, next_due);
	}
	was = put - was;
	spin_unlock_irqrestore(&lock, flags);
	if (was)
		wake_up_interruptible_poll(&readers, EPOLLIN | EPOLLRDNORM);
	hrtimer_set_expires(timer, ns_to_ktime(next));
	return HRTIMER_RESTART;
}

/* ---- the application's face ------------------------------------------- */

static int io_open(struct inode *inode, struct file *file)
{
	unsigned long flags;

	spin_lock_irqsave(&lock, flags);
	if (!open_files++)
		taken = put;
	spin_unlock_irqrestore(&lock, flags);
	return nonseekable_open(inode, file);
}

static int io_release(struct inode *inode, struct file *file)
{
	unsigned long flags;

	spin_lock_irqsave(&lock, flags);
	open_files--;
	spin_unlock_irqrestore(&lock, flags);
	return 0;
}

static bool is_readable(void)
{
	unsigned long flags;
	bool readable;

	spin_lock_irqsave(&lock, flags);
	readable = put != taken || empty_reads;
	spin_unlock_irqrestore(&lock, flags);
	return readable;
}

/* The bytes of the next sample, or -EAGAIN. */
static int take(struct record *record)
{
	int len = -EAGAIN;
	unsigned long flags;

	spin_lock_irqsave(&lock, flags);
	if (empty_reads) {
		empty_reads--;
	} else if (put != taken) {
		*record = records[taken++ % RECORDS];
		len = sizeof(*record);
		if (short_reads) {
			short_reads--;
			len = SHORT_READ;
		}
	}
	spin_unlock_irqrestore(&lock, flags);
	return len;
}

static ssize_t io_read(struct file *file, char __user *to, size_t size, loff_t *pos)
{
	struct record record;
	int len;

	if (size < sizeof(record))
		return -EINVAL;
	for (;;) {
		len = take(&record);
		if (len > 0)
			return copy_to_user(to, &record, len) ? -EFAULT : len;
		if (file->f_flags & O_NONBLOCK)
			return len;
		if (wait_event_interruptible(readers, is_readable()))
			return -ERESTARTSYS;
	}
}

static __poll_t io_poll(struct file *file, struct poll_table_struct *pt)
{
	poll_wait(file, &readers, pt);
	return is_readable() ? EPOLLIN | EPOLLRDNORM : 0;
}

static const struct file_operations io_fops = {
	.owner = THIS_MODULE,
	.open = io_open,
	.release = io_release,
	.read = io_read,
	.poll = io_poll,
	.llseek = no_llseek,
};

static struct miscdevice io_misc = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "norvane_dio",
	.fops = &io_fops,
	.mode = 0600,
};

/* ---- control files ------------------------------------------------------ */

static int state_show(struct seq_file *to, void *owner)
{
	u32 now_upload = readl(block + UPLOAD);
	u32 enabled = readl(block + OUTPUT_ENABLE);
	unsigned long flags;
	unsigned int n;

	for (n = 0; n < OUTPUTS; n++)
		seq_printf(to, "out%u %s\n", n + 1,
			   !(enabled & BIT(n)) ? "off" : output_is_high(n) ? "high" : "low");
	spin_lock_irqsave(&lock, flags);
	for (n = 0; n < INPUTS; n++)
		seq_printf(to, "in%u %u\n", n + 1, inputs >> n & 1);
	for (n = 0; n < INPUTS; n++)
		seq_printf(to, "trigger%u %s\n", n + 1, trigger_is_on(n) ? "on" : "off");
	for (n = 0; n < CONVERTERS; n++)
		seq_printf(to, "adc%u %u\n", n + 1, adc[n]);
	seq_printf(to, "upload %s\nperiod_ms %lu\n", now_upload & UPLOAD_ON ? "on" : "off",
		   FIELD_GET(UPLOAD_PERIOD, now_upload));
	seq_printf(to, "open %u\nwaiting %u\nperiodic %llu\ntriggered %llu\nlost %llu\n",
		   open_files, put - taken, periodic, triggered, lost);
	spin_unlock_irqrestore(&lock, flags);
	return 0;
}

static int inputs_store(char *text, void *owner)
{
	unsigned int input, level;
	unsigned long flags;
	bool changed;
	char more;

	if (sscanf(text, "%u %u%c", &input, &level, &more) != 2 || input < 1 || input > INPUTS ||
	    level > 1)
		return -EINVAL;
	input--;
	spin_lock_irqsave(&lock, flags);
	changed = (inputs >> input & 1) != level && trigger_is_on(input);
	inputs = (inputs & ~BIT(input)) | level << input;
	if (changed) {
		triggered++;
		put_locked(BIT(input), ktime_get_ns());
	}
	spin_unlock_irqrestore(&lock, flags);
	if (changed)
		wake_up_interruptible_poll(&readers, EPOLLIN | EPOLLRDNORM);
	return 0;
}

static int adc_store(char *text, void *owner)
{
	unsigned int channel, value;
	unsigned long flags;
	char more;

	if (sscanf(text, "%u %u%c", &channel, &value, &more) != 2 || channel < 1 ||
	    channel > CONVERTERS || value > U16_MAX)
		return -EINVAL;
	spin_lock_irqsave(&lock, flags);
	adc[channel - 1] = value;
	spin_unlock_irqrestore(&lock, flags);
	return 0;
}

static int fault_show(struct seq_file *to, void *owner)
{
	seq_printf(to, "short %u\nempty %u\n", READ_ONCE(short_reads), READ_ONCE(empty_reads));
	return 0;
}

static int fault_store(char *text, void *owner)
{
	char *kind = strsep(&text, " ");
	bool is_short = !strcmp(kind, "short");
	unsigned long flags;
	u32 count;

	if (!is_short && strcmp(kind, "empty"))
		return -EINVAL;
	if (!text || kstrtou32(text, 10, &count))
		return -EINVAL;
	spin_lock_irqsave(&lock, flags);
	if (is_short)
		short_reads = count;
	else
		empty_reads = count;
	spin_unlock_irqrestore(&lock, flags);
	wake_up_interruptible_poll(&readers, EPOLLIN | EPOLLRDNORM);
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "state", .show = state_show },
	{ .name = "inputs", .store = inputs_store },
	{ .name = "adc", .store = adc_store },
	{ .name = "fault", .show = fault_show, .store = fault_store },
};

static int io_init(struct dentry *control)
{
	int err;

	block = ioremap(IO_BLOCK, IO_BLOCK_SIZE);
	if (!block)
		return -ENOMEM;
	memset_io(block, 0, REGISTERS_SIZE);
	hrtimer_init(&looker, CLOCK_MONOTONIC, HRTIMER_MODE_ABS_SOFT);
	looker.function = look;
	hrtimer_start(&looker, ktime_get(), HRTIMER_MODE_ABS_SOFT);
	err = misc_register(&io_misc);
	if (err) {
		hrtimer_cancel(&looker);
		iounmap(block);
		return err;
	}
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	return 0;
}

static void io_exit(void)
{
	misc_deregister(&io_misc);
	hrtimer_cancel(&looker);
	iounmap(block);
}

const struct vboard_device vboard_io = {
	.name = "io",
	.init = io_init,
	.exit = io_exit,
};
