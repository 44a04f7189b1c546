// SPDX-License-Identifier: GPL-2.0
/*
 * /dev/LIN0_CHAR and /dev/LIN1_CHAR: configuration and operations, as reads and
 * writes of exactly 128 bytes, a struct lin_operation (vboard_lin_wire.h). EINVAL
 * for another length and for values that are not told of here.
 *
 * A read gives LIN_CONFIG as it stands. Only the first read behind a RW_REGISTER
 * or RX_DETIL of the same open file gives the answer to that instead.
 *
 * A write is one operation, by its ot:
 *
 *   LIN_CONFIG      sets all of the configuration, so that who wants to change
 *                   a part reads it first. bitrate 0 (none) or 1000 to 20000;
 *                   wakeup_long in us, at most 65535; clear_response 1 drops
 *                   all responses and reads back as 0; open_rx 1: tell of the
 *                   records. All are 0 at first. A change of lmode drops the
 *                   frames that wait.
 *   RW_REGISTER     sets one of 64 registers, offset 0 to 252 in steps of 4;
 *                   with bit 31 of the offset, only reads it. They do nothing.
 *   RX_DETIL        asks for the record data_index, 0 to 99
 *   CONFIG_DISTURB  on_off 1: from now on the channel overrides the wire in each
 *                   frame, or with enable_id 1 those of the identifier lin_id, 0
 *                   to 63; with enable_times 1, only the next `times` ones. A
 *                   frame without the field is not counted.
 *                     type         0 dominant, 1 recessive, 2 inverted
 *                     field        0 break, 1 sync byte, 2 identifier, 3 to 10
 *                                  bytes of the data, 11 checksum
 *                     offset       bits from the field's first, its start bit
 *                     time_length  bits, at least 1; may reach beyond the field,
 *                                  not beyond the frame
 *                   on_off 0 ends it, and so does reset 1, whatever else is said
 *   SEND_WAKEUP     channel_status 1: wake-up pulses of h_time_length us, 0 meaning
 *                   wakeup_long or else 250; repeat_times of them, 0 meaning one,
 *                   with a pause of l_time_length ms between; both at most 65535.
 *                   reset 1: instead, ends the pulses that are still to come.
 *                   channel_status 0: the command to sleep, a frame 0x3c with the
 *                   bytes 00 FF FF FF FF FF FF FF; a responder may not (EINVAL).
 *                   ENETDOWN while the channel is down, or without a bit rate, to
 *                   sleep; ENOBUFS when too many frames wait
 *
 * A mapping shows the records (vboard_lin_records.c).
 */
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/slab.h>
#include <linux/uaccess.h>

#include "vboard_lin.h"

#define WAKEUP_US 250		/* what every node takes for a wake-up */
#define LENGTH_MAX 65535	/* of times */
#define READ_ONLY BIT(31)	/* in the offset of a register */

static struct lin_char {
	struct miscdevice misc;
	char name[16];
	struct lin_channel *channel;
} chars[LIN_CHANNELS];

struct lin_file {
	struct lin_channel *channel;
	bool has_answer;		/* these two are guarded by lin_lock */
	struct lin_operation answer;
};

/* ---- operations, with lin_lock held ------------------------------------------------ */

static void show_config(const struct lin_channel *channel, struct lin_operation *to)
{
	struct lin_config_data *config = &to->data.config;

	memset(to, 0, sizeof(*to));
	to->ot = cpu_to_le32(LIN_CONFIG);
	config->lversion = cpu_to_le32(channel->version);
	config->lmode = cpu_to_le32(channel->mode);
	config->psupply = cpu_to_le32(channel->supply);
	config->bitrate = cpu_to_le32(channel->bitrate);
	config->wakeup_long = cpu_to_le32(channel->wakeup_us);
	config->open_rx = channel->open_rx;
}

static int set_config(struct lin_channel *channel, const struct lin_config_data *config)
{
	u32 version = le32_to_cpu(config->lversion);
	u32 mode = le32_to_cpu(config->lmode);
	u32 supply = le32_to_cpu(config->psupply);
	u32 bitrate = le32_to_cpu(config->bitrate);
	u32 wakeup_us = le32_to_cpu(config->wakeup_long);

	if (version > SAE_J_26262 || mode > COMMANDER || supply > EXTERNAL ||
	    (bitrate && !lin_rate_is_good(bitrate)) || wakeup_us > LENGTH_MAX ||
	    config->clear_response > 1 || config->open_rx > 1)
		return -EINVAL;
	if (channel->mode != mode) {
		lin_bus_drop(&channel->own);
		lin_net_wake(channel);
	}
	channel->version = version;
	channel->mode = mode;
	channel->supply = supply;
	channel->bitrate = bitrate;
	channel->wakeup_us = wakeup_us;
	channel->open_rx = config->open_rx;
	if (config->clear_response)
		memset(channel->responses, 0, sizeof(channel->responses));
	return 0;
}

static int use_register(struct lin_file *file, const struct lin_operation *operation)
{
	u32 word = le32_to_cpu(operation->data.reg_data.offset);
	u32 offset = word & ~READ_ONLY;
	u32 *value;

	if (offset % sizeof(u32) || offset / sizeof(u32) >= LIN_REGISTERS)
		return -EINVAL;
	value = &file->channel->registers[offset / sizeof(u32)];
	if (!(word & READ_ONLY))
		*value = le32_to_cpu(operation->data.reg_data.reg_value);
	memset(&file->answer, 0, sizeof(file->answer));
	file->answer.ot = operation->ot;
	file->answer.data.reg_data.offset = operation->data.reg_data.offset;
	file->answer.data.reg_data.reg_value = cpu_to_le32(*value);
	file->has_answer = true;
	return 0;
}

static int ask_record(struct lin_file *file, const struct lin_operation *operation)
{
	u32 index = le32_to_cpu(operation->data.rx_data.data_index);

	if (index >= LIN_RECORDS)
		return -EINVAL;
	memset(&file->answer, 0, sizeof(file->answer));
	file->answer.ot = operation->ot;
	file->answer.data.rx_data.value = file->channel->records[index];
	file->answer.data.rx_data.data_index = cpu_to_le32(index);
	file->has_answer = true;
	return 0;
}

static int set_disturb(struct lin_channel *channel, const struct lin_disturb *disturb)
{
	if (disturb->on_off > 1 || disturb->reset > 1)
		return -EINVAL;
	if (disturb->reset || !disturb->on_off) {
		memset(&channel->disturb, 0, sizeof(channel->disturb));
		return 0;
	}
	if (disturb->enable_id > 1 || (disturb->enable_id && disturb->lin_id >= LIN_IDS) ||
	    disturb->enable_times > 1 || (disturb->enable_times && !disturb->times) ||
	    disturb->type >= LIN_LEVELS || disturb->field >= LIN_FIELDS || !disturb->time_length)
		return -EINVAL;
	channel->disturb = *disturb;
	return 0;
}

static int send_sleep(struct lin_channel *channel)
{
	struct lin_slot slot;

	if (channel->mode == RESPONDER)
		return -EINVAL;
	if (!channel->bitrate)
		return -ENETDOWN;
	slot = lin_net_header(LIN_ID_REQUEST, channel->bitrate);
	slot.response.is_set = true;
	slot.response.len = LIN_DATA_MAX;
	memset(slot.response.data + 1, U8_MAX, LIN_DATA_MAX - 1);
	return lin_bus_push(&channel->own, &slot) ? 0 : -ENOBUFS;
}

static int send_wakeup(struct lin_channel *channel, const struct lin_wakeup *wakeup)
{
	u32 length_us = le32_to_cpu(wakeup->h_time_length);
	u32 pause_ms = le32_to_cpu(wakeup->l_time_length);

	if (wakeup->channel_status > 1 || wakeup->reset > 1 || length_us > LENGTH_MAX ||
	    pause_ms > LENGTH_MAX)
		return -EINVAL;
	if (wakeup->reset) {
		channel->own.pulses.left = 0;
		return 0;
	}
	if (!channel->up)
		return -ENETDOWN;
	if (!wakeup->channel_status)
		return send_sleep(channel);
	length_us = length_us ?: channel->wakeup_us ?: WAKEUP_US;
	lin_bus_pulses(&channel->own, wakeup->repeat_times ?: 1, (u64)length_us * NSEC_PER_USEC,
		       (u64)pause_ms * NSEC_PER_MSEC);
	return 0;
}

static int operate(struct lin_file *file, const struct lin_operation *operation)
{
	switch (le32_to_cpu(operation->ot)) {
	case LIN_CONFIG:
		return set_config(file->channel, &operation->data.config);
	case RW_REGISTER:
		return use_register(file, operation);
	case RX_DETIL:
		return ask_record(file, operation);
	case CONFIG_DISTURB:
		return set_disturb(file->channel, &operation->data.lin_dis);
	case SEND_WAKEUP:
		return send_wakeup(file->channel, &operation->data.wake_up);
	default:
		return -EINVAL;
	}
}

void lin_char_reset(struct lin_channel *channel)
{
	static const struct lin_config_data config = { .clear_response = 1 };
	static const struct lin_disturb disturb;

	set_config(channel, &config);
	set_disturb(channel, &disturb);
	memset(channel->registers, 0, sizeof(channel->registers));
	channel->own.pulses.left = 0;
}

/* ---- the device ---------------------------------------------------------------------- */

static int char_open(struct inode *inode, struct file *file)
{
	struct lin_char *of = container_of(file->private_data, struct lin_char, misc);
	struct lin_file *seat = kzalloc(sizeof(*seat), GFP_KERNEL);

	if (!seat)
		return -ENOMEM;
	seat->channel = of->channel;
	file->private_data = seat;
	return nonseekable_open(inode, file);
}

static int char_release(struct inode *inode, struct file *file)
{
	kfree(file->private_data);
	return 0;
}

static ssize_t char_read(struct file *file, char __user *to, size_t len, loff_t *pos)
{
	struct lin_file *seat = file->private_data;
	struct lin_operation operation;

	if (len != sizeof(operation))
		return -EINVAL;
	lin_change_begin();
	if (seat->has_answer)
		operation = seat->answer;
	else
		show_config(seat->channel, &operation);
	seat->has_answer = false;
	lin_change_end();
	return copy_to_user(to, &operation, len) ? -EFAULT : len;
}

static ssize_t char_write(struct file *file, const char __user *from, size_t len, loff_t *pos)
{
	struct lin_operation operation;
	int err;

	if (len != sizeof(operation))
		return -EINVAL;
	if (copy_from_user(&operation, from, len))
		return -EFAULT;
	lin_change_begin();
	err = operate(file->private_data, &operation);
	lin_change_end();
	return err ?: len;
}

static int char_mmap(struct file *file, struct vm_area_struct *vma)
{
	struct lin_file *seat = file->private_data;

	return lin_records_map(seat->channel, vma);
}

static const struct file_operations char_fops = {
	.owner = THIS_MODULE,
	.open = char_open,
	.release = char_release,
	.read = char_read,
	.write = char_write,
	.mmap = char_mmap,
	.llseek = no_llseek,
};

int lin_char_make(struct lin_channel *channel)
{
	struct lin_char *of = &chars[channel->index];

	memset(of, 0, sizeof(*of));
	of->channel = channel;
	snprintf(of->name, sizeof(of->name), "LIN%u_CHAR", channel->index);
	of->misc.minor = MISC_DYNAMIC_MINOR;
	of->misc.name = of->name;
	of->misc.fops = &char_fops;
	of->misc.mode = 0600;
	return misc_register(&of->misc);
}

void lin_char_free(struct lin_channel *channel)
{
	misc_deregister(&chars[channel->index].misc);
}
