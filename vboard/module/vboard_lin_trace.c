// SPDX-License-Identifier: GPL-2.0
/*
 * What the LIN clusters saw, for tests to compare with what the host was told.
 *
 * Control file trace: one line a frame or a wake-up pulse, in the order of their
 * ends in each cluster, the last TRACE_ENTRIES of them:
 *
 *   # queued_ns start_ns end_ns bus sender pid responder data checksum result
 *   1234567890 1234567890 1241026230 0-1 lin0 0x92 lin1 1122334455667788 0x07 ok
 *   2234567890 2234567890 2241027057 0 node 0xD3 - - - noresponse
 *   3234567890 3234567890 3234817890 0 lin0 wakeup - - - ok
 *
 *   queued_ns  when the header reached the driver, or when the pulse was due
 *   start_ns   begin of the break or of the pulse
 *   end_ns     end of the checksum or of the pulse, or of the wait for a response
 *              (all three in nanoseconds of the device time)
 *   bus        the channels on the wire: 0, 1 or 0-1
 *   sender     of the header or the pulse: lin0, lin1, or node for any other
 *   pid, data, checksum
 *              as they were on the wire
 *   responder  who sent the data
 *   result     ok, or what was wrong with a frame, commas between: header,
 *              parity, framing, bit (the sender read another level than it
 *              sent), checksum (by neither way to form it), noresponse; short: a
 *              pulse that wakes nobody; aborted: the sender of the header or of the
 *              response went down, or the wiring changed
 *
 * A line "# lost <count>" comes second if lines have been overwritten since
 * the trace was emptied. Write "clear" to empty it.
 */
#include <linux/debugfs.h>
#include <linux/module.h>
#include <linux/vmalloc.h>

#include "vboard_lin.h"

#define TRACE_ENTRIES 65536

/* Beyond those of error_code. */
#define RESULT_SHORT BIT(16)
#define RESULT_ABORTED BIT(17)

struct trace_entry {
	u64 queued_ns, start_ns, end_ns;	/* device time */
	struct lin_reading reading;		/* its errors are the result */
	u8 channels, sender, responder;
	bool is_pulse;
};

/* Entries are numbered from module load; guarded by lin_lock. */
static struct trace_entry *ring;
static u64 ring_end;			/* number of the next entry */
static u64 cleared;			/* the first one that still counts */

static u64 oldest_entry(void)
{
	return max(cleared, ring_end > TRACE_ENTRIES ? ring_end - TRACE_ENTRIES : 0);
}

static u32 result_of(const struct lin_event *event)
{
	const struct lin_reading *reading = &event->reading;
	u32 result = reading->errors;

	if (event->is_aborted)
		return RESULT_ABORTED;
	if (event->is_short)
		return RESULT_SHORT;
	if (event->header_changed || event->response_changed)
		result |= LIN_ERROR_BIT;
	if (reading->len &&
	    reading->checksum != lin_checksum(reading->pid, reading->data, reading->len, false) &&
	    reading->checksum != lin_checksum(reading->pid, reading->data, reading->len, true))
		result |= LIN_ERROR_CHECKSUM;
	return result;
}

void lin_trace_add(const struct lin_event *event)
{
	struct trace_entry *entry = &ring[ring_end++ % TRACE_ENTRIES];

	entry->queued_ns = vboard_time_at(event->queued_ns);
	entry->start_ns = vboard_time_at(event->start_ns);
	entry->end_ns = vboard_time_at(event->end_ns);
	entry->reading = event->reading;
	entry->reading.errors = result_of(event);
	entry->channels = event->channels;
	entry->sender = event->sender;
	entry->responder = event->responder;
	entry->is_pulse = event->is_pulse;
}

/* ---- reading: position 0 is the head, position n the n-th entry from the first ---- */

struct trace_reader {
	u64 first, end;		/* as the file was opened */
	u64 lost;
};

static void *trace_at(struct seq_file *from, loff_t pos)
{
	struct trace_reader *reader = from->private;

	if (pos > reader->end - reader->first)
		return NULL;
	return (void *)(unsigned long)(pos + 1);
}

static void *trace_start(struct seq_file *from, loff_t *pos)
{
	return trace_at(from, *pos);
}

static void *trace_next(struct seq_file *from, void *at, loff_t *pos)
{
	return trace_at(from, ++*pos);
}

static void trace_stop(struct seq_file *from, void *at)
{
}

static void show_result(struct seq_file *to, u32 result)
{
	static const struct {
		u32 bit;
		const char *word;
	} words[] = {
		{ LIN_ERROR_HEADER, "header" },
		{ LIN_ERROR_PARITY, "parity" },
		{ LIN_ERROR_FRAMING, "framing" },
		{ LIN_ERROR_BIT, "bit" },
		{ LIN_ERROR_CHECKSUM, "checksum" },
		{ LIN_ERROR_NO_RESPONSE, "noresponse" },
		{ RESULT_SHORT, "short" },
		{ RESULT_ABORTED, "aborted" },
	};
	const char *before = " ";
	size_t i;

	if (!result)
		seq_puts(to, " ok");
	for (i = 0; i < ARRAY_SIZE(words); i++) {
		if (!(result & words[i].bit))
			continue;
		seq_printf(to, "%s%s", before, words[i].word);
		before = ",";
	}
	seq_putc(to, '\n');
}

static void show_entry(struct seq_file *to, const struct trace_entry *entry)
{
	static const char *const buses[] = { "", "0", "1", "0-1" };
	static const char *const senders[] = { "lin0", "lin1", "node", "-" };
	const struct lin_reading *reading = &entry->reading;
	u8 i;

	seq_printf(to, "%llu %llu %llu %s %s ", entry->queued_ns, entry->start_ns, entry->end_ns,
		   buses[entry->channels], senders[entry->sender]);
	if (entry->is_pulse)
		seq_puts(to, "wakeup");
	else
		seq_printf(to, "0x%02X", reading->pid);
	seq_printf(to, " %s ", senders[entry->responder]);
	for (i = 0; i < reading->len; i++)
		seq_printf(to, "%02X", reading->data[i]);
	if (reading->len)
		seq_printf(to, " 0x%02X", reading->checksum);
	else
		seq_puts(to, "- -");
	show_result(to, reading->errors);
}

static int trace_show(struct seq_file *to, void *at)
{
	struct trace_reader *reader = to->private;
	unsigned long pos = (unsigned long)at - 1;
	struct trace_entry entry;
	bool is_there;
	u64 number;

	if (!pos) {
		seq_puts(to, "# queued_ns start_ns end_ns bus sender pid responder data ");
		seq_puts(to, "checksum result\n");
		if (reader->lost)
			seq_printf(to, "# lost %llu\n", reader->lost);
		return 0;
	}
	number = reader->first + pos - 1;
	spin_lock_bh(&lin_lock);
	is_there = number >= oldest_entry();	/* not overwritten while we read */
	if (is_there)
		entry = ring[number % TRACE_ENTRIES];
	spin_unlock_bh(&lin_lock);
	if (is_there)
		show_entry(to, &entry);
	return 0;
}

static const struct seq_operations trace_ops = {
	.start = trace_start,
	.next = trace_next,
	.stop = trace_stop,
	.show = trace_show,
};

static int trace_open(struct inode *inode, struct file *file)
{
	struct trace_reader *reader;

	if (!(file->f_mode & FMODE_READ))
		return 0;
	reader = __seq_open_private(file, &trace_ops, sizeof(*reader));
	if (!reader)
		return -ENOMEM;
	spin_lock_bh(&lin_lock);
	reader->first = oldest_entry();
	reader->lost = reader->first - cleared;
	reader->end = ring_end;
	spin_unlock_bh(&lin_lock);
	return 0;
}

static int trace_release(struct inode *inode, struct file *file)
{
	return file->f_mode & FMODE_READ ? seq_release_private(inode, file) : 0;
}

static ssize_t trace_write(struct file *file, const char __user *from, size_t len, loff_t *pos)
{
	char text[16] = "";

	if (len >= sizeof(text))
		return -EMSGSIZE;
	if (copy_from_user(text, from, len))
		return -EFAULT;
	if (strcmp(strim(text), "clear"))
		return -EINVAL;
	spin_lock_bh(&lin_lock);
	cleared = ring_end;
	spin_unlock_bh(&lin_lock);
	return len;
}

static const struct file_operations trace_fops = {
	.owner = THIS_MODULE,
	.open = trace_open,
	.read = seq_read,
	.write = trace_write,
	.llseek = seq_lseek,
	.release = trace_release,
};

int lin_trace_make(struct dentry *control)
{
	ring = vzalloc(array_size(TRACE_ENTRIES, sizeof(*ring)));
	if (!ring)
		return -ENOMEM;
	ring_end = 0;
	cleared = 0;
	debugfs_create_file("trace", 0644, control, NULL, &trace_fops);
	return 0;
}

void lin_trace_free(void)
{
	vfree(ring);
}
