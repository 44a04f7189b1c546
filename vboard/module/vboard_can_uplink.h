/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The way of packets from a wire to the kernel, for net devices of CAN type
 * (vboard_can_uplink.c).
 */
#ifndef VBOARD_CAN_UPLINK_H
#define VBOARD_CAN_UPLINK_H

#include <linux/netdevice.h>
#include <linux/skbuff.h>

/* Packets on their way to the kernel; has its own lock. */
struct can_uplink {
	struct napi_struct napi;
	struct sk_buff_head skbs;
};

void can_uplink_make(struct can_uplink *uplink, struct net_device *dev);
void can_uplink_free(struct can_uplink *uplink);
/* With the device going up and down; may sleep. */
void can_uplink_open(struct can_uplink *uplink);
void can_uplink_close(struct can_uplink *uplink);
/* Any context but a hard interrupt; between open and close. */
bool can_uplink_is_full(const struct can_uplink *uplink);
void can_uplink_pass(struct can_uplink *uplink, struct sk_buff *skb);

#endif
