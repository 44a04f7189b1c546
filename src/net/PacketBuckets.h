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

// Orders buckets for a heap whose top has the oldest front packet. The buckets are not empty; those
// with fronts of one time stand in no order.
struct BucketComparator {
    using Bucket = std::shared_ptr<std::queue<std::shared_ptr<Packet>>>;

    bool operator()(const Bucket& a, const Bucket& b) const {
        return a->front()->timestamp > b->front()->timestamp;
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
    using Bucket = BucketComparator::Bucket;

    std::vector<Bucket> packetBuckets_;
    std::vector<Bucket> minHeap_; // empty between two drains; keeps its memory
};
