// SPDX-License-Identifier: GPL-2.0
/*
 * The port core of each channel, which shows the channel to the system.
 *
 * ncan0 to ncan5: net devices of CAN type. They are raised and lowered with
 * SIOCSIFFLAGS; SIOCDEVPRIVATE takes a 32-bit integer, the self-acknowledge
 * mode: with any value but 0, the channel acknowledges its own frames. The
 * mode goes back to 0 when the device is lowered. Nothing can be sent through
 * these devices. What they receive is told in vboard_can_capture.c.
 *
 * /dev/norvane_can0 to 5: a write of exactly 32 bytes, eight 32-bit integers,
 * sets the channel's bit timing in the protocol core's registers:
 *
 *   nominal brp, sjw, sg1, sg2, data brp, sjw, sg1, sg2
 *
 * each a count from 1. EINVAL for another length, or if the nominal part has a
 * value below 1 or above what its register field holds. A data part of such
 * values means no data rate: whoever sets up a classic channel leaves the data
 * part as it happens to be. A mapping shows the channel's error ring
 * (vboard_can_errors.c).
 */
#include <linux/bitfield.h>
#include <linux/can/can-ml.h>
#include <linux/fs.h>
#include <linux/if_arp.h>
#include <linux/math64.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <linux/uaccess.h>

#include "vboard_can.h"

static struct can_port {
	struct miscdevice misc;
	char name[16];
	struct can_channel *channel;
} ports[CAN_CHANNELS];

struct can_port_priv {
	struct can_channel *channel;
};

/* ---- /dev/norvane_can<n> ---------------------------------------------------- */

static const struct can_timing nominal_max = { .brp = 256, .sjw = 128, .sg1 = 256, .sg2 = 128 };
static const struct can_timing data_max = { .brp = 256, .sjw = 16, .sg1 = 32, .sg2 = 16 };

static bool fits(const struct can_timing *timing, const struct can_timing *most)
{
	return timing->brp >= 1 && timing->brp <= most->brp &&
	       timing->sjw >= 1 && timing->sjw <= most->sjw &&
	       timing->sg1 >= 1 && timing->sg1 <= most->sg1 &&
	       timing->sg2 >= 1 && timing->sg2 <= most->sg2;
}

/* The timing as "ip -details link" shows it. */
static void describe(const struct can_timing *timing, struct can_bittiming *to)
{
	u32 quanta = 1 + timing->sg1 + timing->sg2;

	to->bitrate = CAN_CLOCK_HZ / (timing->brp * quanta);
	to->sample_point = 1000 * (1 + timing->sg1) / quanta;
	to->tq = timing->brp * CAN_CLOCK_NS;
	to->prop_seg = timing->sg1 / 2;
	to->phase_seg1 = timing->sg1 - to->prop_seg;
	to->phase_seg2 = timing->sg2;
	to->sjw = timing->sjw;
	to->brp = timing->brp;
}

static ssize_t port_write(struct file *file, const char __user *from, size_t len, loff_t *pos)
{
	struct can_port *port = container_of(file->private_data, struct can_port, misc);
	struct can_priv *priv = netdev_priv(port->channel->dev);
	struct {
		struct can_timing nominal, data;
	} timing;
	bool has_data;

	if (len != sizeof(timing))
		return -EINVAL;
	if (copy_from_user(&timing, from, len))
		return -EFAULT;
	if (!fits(&timing.nominal, &nominal_max))
		return -EINVAL;
	has_data = fits(&timing.data, &data_max);

	rtnl_lock();
	describe(&timing.nominal, &priv->bittiming);
	if (has_data)
		describe(&timing.data, &priv->data_bittiming);
	else
		memset(&priv->data_bittiming, 0, sizeof(priv->data_bittiming));
	can_regs_set_timing(port->channel->index, &timing.nominal, has_data ? &timing.data : NULL);
	rtnl_unlock();
	return len;
}

static int port_mmap(struct file *file, struct vm_area_struct *vma)
{
	struct can_port *port = container_of(file->private_data, struct can_port, misc);

	return can_errors_map(port->channel, vma);
}

static const struct file_operations port_fops = {
	.owner = THIS_MODULE,
	.open = nonseekable_open,
	.write = port_write,
	.mmap = port_mmap,
	.llseek = no_llseek,
};

/* ---- ncan<n> -------------------------------------------------------------------- */

static struct can_channel *channel_of(const struct net_device *dev)
{
	return ((struct can_port_priv *)netdev_priv(dev))->channel;
}

static int port_open(struct net_device *dev)
{
	struct can_channel *channel = channel_of(dev);

	can_uplink_open(&channel->port_uplink);
	can_change_begin();
	channel->port_up = true;
	can_change_end();
	return 0;
}

static int port_stop(struct net_device *dev)
{
	struct can_channel *channel = channel_of(dev);

	can_change_begin();
	channel->port_up = false;
	channel->self_ack = 0;
	can_change_end();
	can_uplink_close(&channel->port_uplink);
	return 0;
}

static netdev_tx_t port_xmit(struct sk_buff *skb, struct net_device *dev)
{
	dev->stats.tx_dropped++;
	kfree_skb(skb);
	return NETDEV_TX_OK;
}

static int port_ioctl(struct net_device *dev, struct ifreq *request, void __user *data, int command)
{
	int mode;

	if (command != SIOCDEVPRIVATE)
		return -EOPNOTSUPP;
	if (copy_from_user(&mode, data, sizeof(mode)))
		return -EFAULT;
	can_change_begin();
	channel_of(dev)->self_ack = mode;
	can_change_end();
	return 0;
}

/* Captures have had the packet by now; to the CAN protocols it would be a bad frame. */
static rx_handler_result_t port_received(struct sk_buff **skb)
{
	consume_skb(*skb);
	return RX_HANDLER_CONSUMED;
}

static const struct net_device_ops port_ops = {
	.ndo_open = port_open,
	.ndo_stop = port_stop,
	.ndo_start_xmit = port_xmit,
	.ndo_siocdevprivate = port_ioctl,
};

/* CAN sockets look for the receive lists that each device of CAN type has to have. */
#define PRIV_SIZE ALIGN(sizeof(struct can_port_priv), NETDEV_ALIGN)

static void port_setup(struct net_device *dev)
{
	dev->type = ARPHRD_CAN;
	dev->mtu = CANFD_MTU;
	dev->tx_queue_len = 10;
	dev->flags = IFF_NOARP;
	dev->features = NETIF_F_HW_CSUM;
	dev->netdev_ops = &port_ops;
	can_set_ml_priv(dev, netdev_priv(dev) + PRIV_SIZE);
}

static void unregister_port(struct net_device *dev)
{
	rtnl_lock();
	dev_close(dev);
	netdev_rx_handler_unregister(dev);
	unregister_netdevice(dev);
	rtnl_unlock();
}

int can_port_make(struct can_channel *channel)
{
	struct can_port *port = &ports[channel->index];
	struct net_device *dev;
	int err;

	dev = alloc_netdev(PRIV_SIZE + sizeof(struct can_ml_priv), "ncan%d", NET_NAME_ENUM,
			   port_setup);
	if (!dev)
		return -ENOMEM;
	snprintf(dev->name, sizeof(dev->name), "ncan%u", channel->index);
	((struct can_port_priv *)netdev_priv(dev))->channel = channel;
	SET_NETDEV_DEV(dev, &vboard_parent->dev);
	can_uplink_make(&channel->port_uplink, dev);
	channel->port = dev;
	err = register_netdev(dev);
	if (err)
		goto free_dev;
	rtnl_lock();
	err = netdev_rx_handler_register(dev, port_received, NULL);
	rtnl_unlock();
	if (err)
		goto unregister;

	memset(port, 0, sizeof(*port));
	port->channel = channel;
	snprintf(port->name, sizeof(port->name), "norvane_can%u", channel->index);
	port->misc.minor = MISC_DYNAMIC_MINOR;
	port->misc.name = port->name;
	port->misc.fops = &port_fops;
	port->misc.mode = 0600;
	err = misc_register(&port->misc);
	if (err)
		goto unregister;
	return 0;

unregister:
	unregister_port(dev);
free_dev:
	can_uplink_free(&channel->port_uplink);
	free_netdev(dev);
	return err;
}

void can_port_free(struct can_channel *channel)
{
	misc_deregister(&ports[channel->index].misc);
	unregister_port(channel->port);
	can_uplink_free(&channel->port_uplink);
	free_netdev(channel->port);
}
