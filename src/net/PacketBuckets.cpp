#include "net/PacketBuckets.h"

#include <algorithm>
#include <utility>

PacketBuckets::PacketBuckets(int channelCount) : packetBuckets_(static_cast<size_t>(channelCount)) {
    minHeap_.reserve(packetBuckets_.size());
}

bool PacketBuckets::Push(std::shared_ptr<Packet> packet) {
    const auto index = static_cast<size_t>(packet->index); // a negative one becomes a large one
    if (index >= packetBuckets_.size()) {
        return false;
    }
    packetBuckets_[index].push(std::move(packet));
    return true;
}

bool PacketBuckets::Drain(uint64_t boundary, const Sink& sink) {
    FillHeap(boundary);
    const bool allRipe = minHeap_.size() == packetBuckets_.size();
    while (!minHeap_.empty()) {
        HeapEntry& oldest = minHeap_.front();
        sink(oldest.bucket->front());
        oldest.bucket->pop();
        if (!oldest.bucket->empty() && oldest.bucket->front()->timestamp <= boundary) {
            oldest.timestamp = oldest.bucket->front()->timestamp;
        } else {
            oldest = minHeap_.back();
            minHeap_.pop_back();
        }
        SettleTop();
    }
    return allRipe;
}

void PacketBuckets::FillHeap(uint64_t boundary) {
    minHeap_.clear(); // a sink that threw has left some
    for (PacketBucket& bucket : packetBuckets_) {
        if (!bucket.empty() && bucket.front()->timestamp <= boundary) {
            minHeap_.push_back({bucket.front()->timestamp, &bucket});
        }
    }
    std::make_heap(minHeap_.begin(), minHeap_.end(), BucketComparator());
}

// Moves the top to its place after it got another time. To pop it and push it again would walk the
// heap twice, and a burst of one channel mostly stays where it is.
void PacketBuckets::SettleTop() {
    const BucketComparator younger;
    const size_t size = minHeap_.size();
    for (size_t at = 0, child = 1; child < size; at = child, child = 2 * at + 1) {
        if (child + 1 < size && younger(minHeap_[child], minHeap_[child + 1])) {
            ++child;
        }
        if (!younger(minHeap_[at], minHeap_[child])) {
            return;
        }
        std::swap(minHeap_[at], minHeap_[child]);
    }
}
