// SPDX-License-Identifier: GPL-2.0
/*
 * The way of packets from a wire to the kernel: one NAPI context and one queue
 * a net device, so that their order is that of the wire whatever processor the
 * wire's timer ran on.
 */
#include "vboard_can_uplink.h"

#define UPLINK_MAX 8192		/* packets on their way */

static int uplink_poll(struct napi_struct *napi, int budget)
{
	struct can_uplink *uplink = container_of(napi, struct can_uplink, napi);
	struct sk_buff *skb;
	int done = 0;

	while (done < budget && (skb = skb_dequeue(&uplink->skbs))) {
		netif_receive_skb(skb);
		done++;
	}
	if (done < budget && napi_complete_done(napi, done) &&
	    !skb_queue_empty_lockless(&uplink->skbs))
		napi_schedule(napi);
	return done;
}

bool can_uplink_is_full(const struct can_uplink *uplink)
{
	return skb_queue_len_lockless(&uplink->skbs) >= UPLINK_MAX;
}

void can_uplink_pass(struct can_uplink *uplink, struct sk_buff *skb)
{
	skb_queue_tail(&uplink->skbs, skb);
	napi_schedule(&uplink->napi);
}

void can_uplink_open(struct can_uplink *uplink)
{
	napi_enable(&uplink->napi);
}

/* What the wire carried before the device went down is still for the kernel. */
void can_uplink_close(struct can_uplink *uplink)
{
	struct sk_buff *skb;

	napi_disable(&uplink->napi);
	local_bh_disable();
	while ((skb = skb_dequeue(&uplink->skbs)))
		netif_receive_skb(skb);
	local_bh_enable();
}

void can_uplink_make(struct can_uplink *uplink, struct net_device *dev)
{
	skb_queue_head_init(&uplink->skbs);
	netif_napi_add(dev, &uplink->napi, uplink_poll);
}

void can_uplink_free(struct can_uplink *uplink)
{
	netif_napi_del(&uplink->napi);
}
