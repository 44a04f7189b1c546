// SPDX-License-Identifier: GPL-2.0
/*
 * Two GPIO chips, gpiochip0 and gpiochip1, of 64 lines each.
 *
 * Lines start as inputs, driven low from outside. An output keeps the level
 * that was set, also after its request is released; an input shows the level
 * that is driven from outside. A request as output with a default value sets
 * that value first, as hardware does: it shows in the log.
 *
 * The lamps of chip 1 light at level 0.
 *
 * Control files, one directory a chip (chip0, chip1):
 *   lines  reads a line "<line> in|out <level>" for each line;
 *          write "<line> 0|1" to drive the line from outside
 *   log    reads "<line> <level>" for each setting of an output, oldest
 *          first, the last LOG_ENTRIES of them; a write empties it
 */
#include <linux/debugfs.h>
#include <linux/gpio/driver.h>
#include <linux/module.h>

#include "vboard.h"

#define CHIPS 2
#define LINES 64
#define LOG_ENTRIES 1024

struct setting {
	u8 line;
	u8 level;
};

struct chip {
	struct gpio_chip gc;
	spinlock_t lock;		/* guards all below */
	DECLARE_BITMAP(is_output, LINES);
	DECLARE_BITMAP(output, LINES);
	DECLARE_BITMAP(outside, LINES);	/* what drives the line from outside */
	struct setting log[LOG_ENTRIES];
	unsigned int logged;		/* settings since the log was emptied */
};

static struct chip chips[CHIPS];

static bool level_locked(const struct chip *chip, unsigned int line)
{
	return test_bit(line, test_bit(line, chip->is_output) ? chip->output : chip->outside);
}

static void set_locked(struct chip *chip, unsigned int line, int level)
{
	struct setting *entry = &chip->log[chip->logged++ % LOG_ENTRIES];

	assign_bit(line, chip->output, level);
	entry->line = line;
	entry->level = level ? 1 : 0;
}

static int chip_get_direction(struct gpio_chip *gc, unsigned int line)
{
	struct chip *chip = gpiochip_get_data(gc);

	return test_bit(line, chip->is_output) ? GPIO_LINE_DIRECTION_OUT : GPIO_LINE_DIRECTION_IN;
}

static int chip_direction_input(struct gpio_chip *gc, unsigned int line)
{
	struct chip *chip = gpiochip_get_data(gc);
	unsigned long flags;

	spin_lock_irqsave(&chip->lock, flags);
	clear_bit(line, chip->is_output);
	spin_unlock_irqrestore(&chip->lock, flags);
	return 0;
}

static int chip_direction_output(struct gpio_chip *gc, unsigned int line, int level)
{
	struct chip *chip = gpiochip_get_data(gc);
	unsigned long flags;

	spin_lock_irqsave(&chip->lock, flags);
	set_bit(line, chip->is_output);
	set_locked(chip, line, level);
	spin_unlock_irqrestore(&chip->lock, flags);
	return 0;
}

static int chip_get(struct gpio_chip *gc, unsigned int line)
{
	struct chip *chip = gpiochip_get_data(gc);
	unsigned long flags;
	int level;

	spin_lock_irqsave(&chip->lock, flags);
	level = level_locked(chip, line);
	spin_unlock_irqrestore(&chip->lock, flags);
	return level;
}

static void chip_set(struct gpio_chip *gc, unsigned int line, int level)
{
	struct chip *chip = gpiochip_get_data(gc);
	unsigned long flags;

	spin_lock_irqsave(&chip->lock, flags);
	set_locked(chip, line, level);
	spin_unlock_irqrestore(&chip->lock, flags);
}

static int lines_show(struct seq_file *to, void *owner)
{
	struct chip *chip = owner;
	unsigned long flags;
	unsigned int line;

	for (line = 0; line < LINES; line++) {
		bool is_output, level;

		spin_lock_irqsave(&chip->lock, flags);
		is_output = test_bit(line, chip->is_output);
		level = level_locked(chip, line);
		spin_unlock_irqrestore(&chip->lock, flags);
		seq_printf(to, "%u %s %d\n", line, is_output ? "out" : "in", level);
	}
	return 0;
}

static int lines_store(char *text, void *owner)
{
	struct chip *chip = owner;
	unsigned int line, level;
	unsigned long flags;
	char more;

	if (sscanf(text, "%u %u%c", &line, &level, &more) != 2 || line >= LINES || level > 1)
		return -EINVAL;
	spin_lock_irqsave(&chip->lock, flags);
	assign_bit(line, chip->outside, level);
	spin_unlock_irqrestore(&chip->lock, flags);
	return 0;
}

static int log_show(struct seq_file *to, void *owner)
{
	struct chip *chip = owner;
	unsigned long flags;
	unsigned int i;

	spin_lock_irqsave(&chip->lock, flags);
	for (i = chip->logged > LOG_ENTRIES ? chip->logged - LOG_ENTRIES : 0; i < chip->logged; i++) {
		const struct setting *entry = &chip->log[i % LOG_ENTRIES];

		seq_printf(to, "%u %u\n", entry->line, entry->level);
	}
	spin_unlock_irqrestore(&chip->lock, flags);
	return 0;
}

static int log_store(char *text, void *owner)
{
	struct chip *chip = owner;
	unsigned long flags;

	spin_lock_irqsave(&chip->lock, flags);
	chip->logged = 0;
	spin_unlock_irqrestore(&chip->lock, flags);
	return 0;
}

static const struct vboard_control controls[CHIPS][2] = {
	{
		{ .name = "lines", .show = lines_show, .store = lines_store, .owner = &chips[0] },
		{ .name = "log", .show = log_show, .store = log_store, .owner = &chips[0] },
	},
	{
		{ .name = "lines", .show = lines_show, .store = lines_store, .owner = &chips[1] },
		{ .name = "log", .show = log_show, .store = log_store, .owner = &chips[1] },
	},
};

static int make_chip(struct chip *chip)
{
	spin_lock_init(&chip->lock);
	chip->gc.label = "vboard";
	chip->gc.parent = &vboard_parent->dev;
	chip->gc.owner = THIS_MODULE;
	chip->gc.base = -1;
	chip->gc.ngpio = LINES;
	chip->gc.get_direction = chip_get_direction;
	chip->gc.direction_input = chip_direction_input;
	chip->gc.direction_output = chip_direction_output;
	chip->gc.get = chip_get;
	chip->gc.set = chip_set;
	return gpiochip_add_data(&chip->gc, chip);
}

static int gpio_init(struct dentry *control)
{
	static const char *const names[CHIPS] = { "chip0", "chip1" };
	unsigned int i;
	int err;

	for (i = 0; i < CHIPS; i++) {
		err = make_chip(&chips[i]);
		if (err) {
			while (i--)
				gpiochip_remove(&chips[i].gc);
			return err;
		}
		vboard_add_controls(debugfs_create_dir(names[i], control), controls[i],
				    ARRAY_SIZE(controls[i]));
	}
	return 0;
}

static void gpio_exit(void)
{
	unsigned int i;

	for (i = 0; i < CHIPS; i++)
		gpiochip_remove(&chips[i].gc);
}

const struct vboard_device vboard_gpio = {
	.name = "gpio",
	.init = gpio_init,
	.exit = gpio_exit,
};
