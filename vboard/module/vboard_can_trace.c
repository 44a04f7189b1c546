// SPDX-License-Identifier: GPL-2.0
/*
 * What the CAN wires saw, for tests to compare with what the host was told.
 *
 * Control file trace: one line an attempt to send, in the order of their ends
 * on each wire, the last TRACE_ENTRIES of them:
 *
 *   # queued_ns start_ns end_ns channel frame origin result
 *   1234567890 1234567900 1234801900 can0 123#DEADBEEF bcm ok
 *
 *   queued_ns  when the frame reached the driver
 *   start_ns   start of frame on the wire
 *   end_ns     end of frame, or of the error frame in its place
 *              (all three in nanoseconds of the device time)
 *   frame      in the notation of cansend, as on the wire: an FD frame of an
 *              error-passive sender has the flag 2
 *   origin     bcm: sent by a broadcast manager socket; raw: by anybody else
 *   result     ok; noack: nobody acknowledged it, and it is tried again;
 *              aborted: the sender went down or into configuration mode;
 *              bit, stuff, crc, form: failed so, as ordered, and is tried again
 *
 * The first RETRY_LINES unacknowledged attempts of a frame have a line each.
 * Further ones share a line from the first's start to the last's end, with
 * "noack*<count>" as result, which grows as long as the frame is retried.
 *
 * A line "# lost <count>" comes second if lines have been overwritten since
 * the trace was emptied. Write "clear" to empty it, and "keep <lines>" to have
 * fewer than TRACE_ENTRIES of them kept, from the next one on.
 */
#include <linux/debugfs.h>
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/vmalloc.h>

#include "vboard_can.h"

#define TRACE_ENTRIES 262144
#define RETRY_LINES 3

struct trace_entry {
	u64 queued_ns, start_ns, end_ns;	/* device time */
	struct can_wire_frame wire;
	u32 count;				/* attempts that share the line */
	u8 channel;
	u8 origin;
	u8 result;
};

/* Entries are numbered from module load; guarded by can_lock. */
static struct trace_entry *ring;
static u64 ring_end;			/* number of the next entry */
static u64 cleared;			/* the first one that still counts */
static u32 kept = TRACE_ENTRIES;	/* as many as are shown */

static u64 oldest_entry(void)
{
	return max(cleared, ring_end > kept ? ring_end - kept : 0);
}

void can_trace_attempt(const struct can_attempt *attempt)
{
	struct can_slot *slot = attempt->slot;
	bool retry = attempt->result == CAN_RESULT_NOACK && slot->attempts > RETRY_LINES;
	u64 end_ns = vboard_time_at(attempt->end_ns);
	struct trace_entry *entry;

	if (retry && slot->attempts > RETRY_LINES + 1 && slot->trace_entry >= oldest_entry()) {
		entry = &ring[slot->trace_entry % TRACE_ENTRIES];
		entry->count++;
		entry->end_ns = end_ns;
		return;
	}
	if (retry)
		slot->trace_entry = ring_end;
	entry = &ring[ring_end++ % TRACE_ENTRIES];
	entry->queued_ns = vboard_time_at(slot->queued_ns);
	entry->start_ns = vboard_time_at(attempt->start_ns);
	entry->end_ns = end_ns;
	entry->wire = slot->wire;
	if (slot->wire.fd && attempt->passive)
		entry->wire.frame.flags |= CANFD_ESI;
	entry->count = retry ? 1 : 0;
	entry->channel = attempt->sender->index;
	entry->origin = slot->origin;
	entry->result = attempt->result;
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

static void show_entry(struct seq_file *to, const struct trace_entry *entry)
{
	static const char *const origins[] = { "raw", "bcm" };
	static const char *const results[] = { "ok", "noack", "aborted", "bit", "stuff",
						"crc", "form" };
	char text[CAN_TEXT_MAX];

	can_frame_text(text, &entry->wire);
	seq_printf(to, "%llu %llu %llu can%u %s %s %s", entry->queued_ns, entry->start_ns,
		   entry->end_ns, entry->channel, text, origins[entry->origin],
		   results[entry->result]);
	if (entry->count)
		seq_printf(to, "*%u", entry->count);
	seq_putc(to, '\n');
}

static int trace_show(struct seq_file *to, void *at)
{
	struct trace_reader *reader = to->private;
	unsigned long pos = (unsigned long)at - 1;
	struct trace_entry entry;
	bool is_there;
	u64 number;

	if (!pos) {
		seq_puts(to, "# queued_ns start_ns end_ns channel frame origin result\n");
		if (reader->lost)
			seq_printf(to, "# lost %llu\n", reader->lost);
		return 0;
	}
	number = reader->first + pos - 1;
	spin_lock_bh(&can_lock);
	is_there = number >= oldest_entry();	/* not overwritten while we read */
	if (is_there)
		entry = ring[number % TRACE_ENTRIES];
	spin_unlock_bh(&can_lock);
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
	spin_lock_bh(&can_lock);
	reader->first = oldest_entry();
	reader->lost = reader->first - cleared;
	reader->end = ring_end;
	spin_unlock_bh(&can_lock);
	return 0;
}

static int trace_release(struct inode *inode, struct file *file)
{
	return file->f_mode & FMODE_READ ? seq_release_private(inode, file) : 0;
}

static ssize_t trace_write(struct file *file, const char __user *from, size_t len, loff_t *pos)
{
	char text[24] = "";
	bool clear;
	u32 lines;

	if (len >= sizeof(text))
		return -EMSGSIZE;
	if (copy_from_user(text, from, len))
		return -EFAULT;
	clear = !strcmp(strim(text), "clear");
	if (!clear && (sscanf(text, "keep %u", &lines) != 1 || !lines || lines > TRACE_ENTRIES))
		return -EINVAL;
	spin_lock_bh(&can_lock);
	if (clear)
		cleared = ring_end;
	else
		kept = lines;
	spin_unlock_bh(&can_lock);
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

int can_trace_make(struct dentry *control)
{
	ring = vzalloc(array_size(TRACE_ENTRIES, sizeof(*ring)));
	if (!ring)
		return -ENOMEM;
	ring_end = 0;
	cleared = 0;
	debugfs_create_file("trace", 0644, control, NULL, &trace_fops);
	return 0;
}

void can_trace_free(void)
{
	vfree(ring);
}
