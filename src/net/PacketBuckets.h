#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <queue>
#include <vector>

// One message of one channel, ready for the host.
struct Packet {
    Packet(uint64_t time, int bucket, std::shared_ptr<unsigned char[]> bytes, size_t size)
        : timestamp(time), index(bucket), buf(std::move(bytes)), length(static_cast<int>(size)) {}

    uint64_t timestamp; // nanoseconds of the device time
    int index;          // bucket, from 0
    std::shared_ptr<unsigned char[]> buf;
    int length; // bytes in `buf`
};

// The packets of one channel, in the order of their arrival.
using PacketBucket = std::queue<std::shared_ptr<Packet>>;

// A bucket in the heap, with the time of its front packet.
struct HeapEntry {
    uint64_t timestamp;
    PacketBucket* bucket;
};

// Orders a heap whose top has the oldest front packet. Entries of one time stand in no order.
struct BucketComparator {
    bool operator()(const HeapEntry& a, const HeapEntry& b) const {
        return a.timestamp > b.timestamp;
    }
};

// The k-way merge of the packet merger, without its clock: one queue a channel, each in the order
// of its own arrival. Without limit: nothing is dropped. One thread at a time.
class PacketBuckets {
  public:
    using Sink = std::function<void(std::shared_ptr<Packet>)>;

    explicit PacketBuckets(int channelCount);

    // A packet of a bucket that does not exist is dropped: false.
    bool Push(std::shared_ptr<Packet> packet);

    // Hands every packet not younger than `boundary` to `sink`, the oldest first as far as each
    // bucket is in order itself. True when each bucket had such a packet at the start, which it
    // also is when there is no bucket.
    bool Drain(uint64_t boundary, const Sink& sink);

  private:
    void FillHeap(uint64_t boundary);
    void SettleTop();

    std::vector<PacketBucket> packetBuckets_;
    std::vector<HeapEntry> minHeap_; // empty between two drains; keeps its memory
};
