#pragma once

#include "net/PacketBuckets.h"

#include <cstdint>
#include <functional>
#include <memory>

class ZephEventLoop;

// Brings the packets of several channels into the order of their time: holds each for `threshold`
// nanoseconds after its timestamp, then hands it on, the oldest first. A packet leaves no earlier
// than that and, on an idle loop, no later than about two thresholds after its time.
//
// Once a packet was pushed, a timer of one threshold runs. It goes on as long as some channel has
// nothing ripe to give, so with a silent channel it does not stop; it stops when every channel had
// a ripe packet, and what is younger then waits for the next push.
//
// Push and SetThreshold may be called on any thread; all else happens on the loop's.
class PacketMerger {
  public:
    using Callback = std::function<void(std::shared_ptr<Packet>)>;

    // `channelCount` buckets, which may be none. `callback` gets the packets on the loop's thread.
    PacketMerger(ZephEventLoop* loop, int channelCount, uint64_t threshold, Callback callback);
    PacketMerger(const PacketMerger&) = delete;
    PacketMerger& operator=(const PacketMerger&) = delete;

    // Loop's thread. What is queued or pending on the loop then is without effect.
    ~PacketMerger() = default;

    // Queues a packet. One whose index is no bucket is dropped.
    void Push(std::shared_ptr<Packet> packet);

    // From the next run on; a timer that is pending keeps its time.
    void SetThreshold(uint64_t threshold);

  private:
    void Take(std::shared_ptr<Packet> packet);
    void ArmTimer();
    void Consump();

    ZephEventLoop* loop_;
    bool isEmpty_ = true; // the last run found every bucket ripe, and nothing was pushed since
    bool taskQueued_ = false;
    uint64_t threshold_; // nanoseconds
    Callback callback_;
    PacketBuckets packetBuckets_;
    // What the loop still holds of this object asks here first whether it is there.
    std::shared_ptr<PacketMerger*> self_ = std::make_shared<PacketMerger*>(this);
};
