// SPDX-License-Identifier: GPL-2.0
/*
 * The virtual board's drivers: makes the devices listed in vboard_devices.h
 * and their control directory /sys/kernel/debug/vboard/.
 *
 * A test module: it stands in for a board's drivers and takes memory at fixed
 * physical addresses. It has no place on a machine that does real work.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/debugfs.h>
#include <linux/module.h>

#include "vboard.h"

#define VBOARD_DEVICE(device) extern const struct vboard_device vboard_##device;
#include "vboard_devices.h"
#undef VBOARD_DEVICE

static const struct vboard_device *const devices[] = {
#define VBOARD_DEVICE(device) &vboard_##device,
#include "vboard_devices.h"
#undef VBOARD_DEVICE
};

struct platform_device *vboard_parent;
static struct dentry *control_root;

/* The control files go first: nobody may reach into a device that ends. */
static void vboard_take_down(size_t made)
{
	debugfs_remove_recursive(control_root);
	while (made--)
		devices[made]->exit();
	platform_device_unregister(vboard_parent);
}

static int __init vboard_init(void)
{
	size_t i;
	int err;

	vboard_parent = platform_device_register_simple("vboard", PLATFORM_DEVID_NONE, NULL, 0);
	if (IS_ERR(vboard_parent))
		return PTR_ERR(vboard_parent);
	control_root = debugfs_create_dir("vboard", NULL);

	for (i = 0; i < ARRAY_SIZE(devices); i++) {
		err = devices[i]->init(debugfs_create_dir(devices[i]->name, control_root));
		if (err) {
			pr_err("cannot make the device %s: error %d\n", devices[i]->name, err);
			vboard_take_down(i);
			return err;
		}
	}
	return 0;
}
module_init(vboard_init);

static void __exit vboard_exit(void)
{
	vboard_take_down(ARRAY_SIZE(devices));
}
module_exit(vboard_exit);

MODULE_DESCRIPTION("Stand-ins for the drivers of a vehicle communication interface");
MODULE_LICENSE("GPL");
MODULE_INFO(test, "Y");
