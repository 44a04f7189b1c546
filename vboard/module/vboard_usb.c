// SPDX-License-Identifier: GPL-2.0
/*
 * The application's end of the USB link, /dev/usb-zeph; any number of openers.
 *
 * mmap() by offset, shared, of exactly the region's length:
 *
 *   offset  length     region
 *   0       4096       info page: six free-running 32-bit indices, in order
 *                      read in, read out, write in, write out, length in,
 *                      length out
 *   4096    1 MiB      read ring: a byte stream from the host
 *   8192    16 MiB     write ring: the bytes of messages to the host
 *   12288   16 MiB     length ring: a 32-bit length for each of them, at
 *                      entry (index % 0x400000)
 *
 * The application moves read out, write in and length in; we move the others.
 * Read and write indices count bytes, length indices count messages.
 *
 * ioctl(0x7605), no argument: the doorbell. The host can read the messages
 * that are queued by then.
 *
 * poll: EPOLLIN as long as the read ring is not empty.
 *
 * The device exists while the link is attached (module parameter usb_attached,
 * 1 unless told). Descriptors and mappings from before a detach stay good.
 *
 * Control files:
 *   attached  0 or 1, may be written
 *   hangup    write 1: EPOLLHUP for one report to each open descriptor
 *   error     write 1: EPOLLERR likewise
 *   stats     counters since module load
 *   indices   a line "<index> <value>" for each of the six; write words
 *             "<index>=<value>" to set some, as if the link had got there;
 *             the messages up to length_in then count as announced
 */
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/vmalloc.h>

#include "vboard.h"
#include "vboard_usb.h"

#define USB_DOORBELL _IO('v', 5)

static bool usb_attached = true;
module_param(usb_attached, bool, 0444);
MODULE_PARM_DESC(usb_attached, "whether /dev/usb-zeph exists from the start");

/* One open descriptor's view of the injected conditions. */
struct app_file {
	struct vboard_seat hangup, error;
};

static struct vboard_condition hangup, error;
static DEFINE_MUTEX(attach_lock);
static bool is_attached;

static int app_open(struct inode *inode, struct file *file)
{
	struct app_file *app = kzalloc(sizeof(*app), GFP_KERNEL);

	if (!app)
		return -ENOMEM;
	vboard_seat_init(&hangup, &app->hangup);
	vboard_seat_init(&error, &app->error);
	file->private_data = app;
	return nonseekable_open(inode, file);
}

static int app_release(struct inode *inode, struct file *file)
{
	kfree(file->private_data);
	return 0;
}

static int app_mmap(struct file *file, struct vm_area_struct *vma)
{
	const struct {
		void *memory;
		unsigned long size;
	} regions[] = {
		{ usb_link.page, PAGE_SIZE },
		{ usb_link.read, USB_READ_SIZE },
		{ usb_link.write, USB_WRITE_SIZE },
		{ usb_link.length, USB_LENGTH_SIZE },
	};

	if (vma->vm_pgoff >= ARRAY_SIZE(regions) || !(vma->vm_flags & VM_SHARED) ||
	    vma->vm_end - vma->vm_start != regions[vma->vm_pgoff].size)
		return -EINVAL;
	return remap_vmalloc_range(vma, regions[vma->vm_pgoff].memory, 0);
}

static long app_ioctl(struct file *file, unsigned int command, unsigned long unused)
{
	if (command != USB_DOORBELL)
		return -ENOTTY;
	usb_link_doorbell();
	return 0;
}

static __poll_t app_poll(struct file *file, struct poll_table_struct *pt)
{
	struct app_file *app = file->private_data;
	__poll_t mask = 0;

	poll_wait(file, &usb_link.app_wait, pt);
	if (usb_link_readable())
		mask |= EPOLLIN | EPOLLRDNORM;
	if (vboard_seat_report(&hangup, &app->hangup, pt))
		mask |= EPOLLHUP;
	if (vboard_seat_report(&error, &app->error, pt))
		mask |= EPOLLERR;
	return mask;
}

static const struct file_operations app_fops = {
	.owner = THIS_MODULE,
	.open = app_open,
	.release = app_release,
	.mmap = app_mmap,
	.unlocked_ioctl = app_ioctl,
	.poll = app_poll,
	.llseek = no_llseek,
};

static struct miscdevice app_misc = {
	.name = "usb-zeph",
	.fops = &app_fops,
	.mode = 0600,
};

static int set_attached(bool wanted)
{
	int err = 0;

	mutex_lock(&attach_lock);
	if (wanted && !is_attached) {
		app_misc.minor = MISC_DYNAMIC_MINOR;
		err = misc_register(&app_misc);
	} else if (!wanted && is_attached) {
		misc_deregister(&app_misc);
	}
	if (!err)
		is_attached = wanted;
	mutex_unlock(&attach_lock);
	return err;
}

static int attached_show(struct seq_file *to, void *owner)
{
	seq_printf(to, "%d\n", READ_ONCE(is_attached));
	return 0;
}

static int attached_store(char *text, void *owner)
{
	bool wanted;
	int err = kstrtobool(text, &wanted);

	return err ? err : set_attached(wanted);
}

static int raise(const char *text, struct vboard_condition *condition, __poll_t mask)
{
	if (strcmp(text, "1"))
		return -EINVAL;
	vboard_condition_raise(condition);
	wake_up_interruptible_poll(&usb_link.app_wait, mask);
	return 0;
}

static int hangup_store(char *text, void *owner)
{
	return raise(text, &hangup, EPOLLHUP);
}

static int error_store(char *text, void *owner)
{
	return raise(text, &error, EPOLLERR);
}

static int stats_show(struct seq_file *to, void *owner)
{
	const struct {
		const char *name;
		atomic64_t *counter;
	} counters[] = {
		{ "writes_to_app", &usb_link.writes_to_app },
		{ "bytes_to_app", &usb_link.bytes_to_app },
		{ "messages_to_host", &usb_link.messages_to_host },
		{ "bytes_to_host", &usb_link.bytes_to_host },
		{ "doorbells", &usb_link.doorbells },
		{ "bad_lengths", &usb_link.bad_lengths },
	};
	size_t i;

	for (i = 0; i < ARRAY_SIZE(counters); i++)
		seq_printf(to, "%s %lld\n", counters[i].name, atomic64_read(counters[i].counter));
	return 0;
}

static const char *const index_names[] = {
	"read_in", "read_out", "write_in", "write_out", "length_in", "length_out",
};

static int indices_show(struct seq_file *to, void *owner)
{
	const u32 *word = (const u32 *)usb_link.page;
	size_t i;

	for (i = 0; i < ARRAY_SIZE(index_names); i++)
		seq_printf(to, "%s %u\n", index_names[i], READ_ONCE(word[i]));
	return 0;
}

/* Reads "<index>=<value>" words; returns a bit for each index named, or an error. */
static int parse_indices(char *text, u32 *words)
{
	char *assignment;
	int named = 0;

	while ((assignment = strsep(&text, " "))) {
		char *name = strsep(&assignment, "=");
		int i = match_string(index_names, ARRAY_SIZE(index_names), name);

		if (i < 0 || !assignment || kstrtou32(assignment, 0, &words[i]))
			return -EINVAL;
		named |= BIT(i);
	}
	return named;
}

static int indices_store(char *text, void *owner)
{
	struct usb_link *link = &usb_link;
	u32 words[ARRAY_SIZE(index_names)];
	u32 *word = (u32 *)link->page;
	int named = parse_indices(text, words);
	size_t i;

	if (named < 0)
		return named;
	mutex_lock(&link->to_app);
	mutex_lock(&link->to_host);
	for (i = 0; i < ARRAY_SIZE(words); i++)
		if (named & BIT(i))
			WRITE_ONCE(word[i], words[i]);
	link->read_in = READ_ONCE(link->page->read_in);
	link->write_out = READ_ONCE(link->page->write_out);
	link->length_out = READ_ONCE(link->page->length_out);
	spin_lock_irq(&link->bell);
	link->announced = READ_ONCE(link->page->length_in);
	spin_unlock_irq(&link->bell);
	mutex_unlock(&link->to_host);
	mutex_unlock(&link->to_app);
	wake_up_interruptible(&link->app_wait);
	wake_up_interruptible(&link->host_wait);
	return 0;
}

static const struct vboard_control controls[] = {
	{ .name = "attached", .show = attached_show, .store = attached_store },
	{ .name = "hangup", .store = hangup_store },
	{ .name = "error", .store = error_store },
	{ .name = "stats", .show = stats_show },
	{ .name = "indices", .show = indices_show, .store = indices_store },
};

static int usb_init(struct dentry *control)
{
	int err;

	vboard_condition_init(&hangup);
	vboard_condition_init(&error);
	err = usb_link_make();
	if (err)
		return err;
	err = usb_host_make();
	if (err)
		goto free_link;
	err = set_attached(usb_attached);
	if (err)
		goto free_host;
	vboard_add_controls(control, controls, ARRAY_SIZE(controls));
	return 0;

free_host:
	usb_host_free();
free_link:
	usb_link_free();
	return err;
}

static void usb_exit(void)
{
	set_attached(false);
	usb_host_free();
	usb_link_free();
}

const struct vboard_device vboard_usb = {
	.name = "usb",
	.init = usb_init,
	.exit = usb_exit,
};
