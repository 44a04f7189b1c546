#include "net/PacketBuckets.h"

#include <algorithm>
#include <utility>

PacketBuckets::PacketBuckets(int channelCount) {
    for (int i = 0; i < channelCount; ++i) {
        packetBuckets_.push_back(std::make_shared<Bucket::element_type>());
    }
    minHeap_.reserve(packetBuckets_.size());
}

bool PacketBuckets::Push(std::shared_ptr<Packet> packet) {
    const auto index = static_cast<size_t>(packet->index); // a negative one becomes a large one
    if (index >= packetBuckets_.size()) {
        return false;
    }
    packetBuckets_[index]->push(std::move(packet));
    return true;
}

bool PacketBuckets::Drain(uint64_t boundary, const Sink& sink) {
    const auto isRipe = [boundary](const Bucket& bucket) {
        return !bucket->empty() && bucket->front()->timestamp <= boundary;
    };
    const BucketComparator younger;
    minHeap_.clear(); // a sink that threw may have left some
    for (const Bucket& bucket : packetBuckets_) {
        if (isRipe(bucket)) {
            minHeap_.push_back(bucket);
        }
    }
    const bool allRipe = minHeap_.size() == packetBuckets_.size();
    std::make_heap(minHeap_.begin(), minHeap_.end(), younger);
    while (!minHeap_.empty()) {
        std::pop_heap(minHeap_.begin(), minHeap_.end(), younger);
        const Bucket& oldest = minHeap_.back();
        // A burst of one channel stays off the heap while nothing older waits there.
        do {
            sink(oldest->front());
            oldest->pop();
        } while (isRipe(oldest) && (minHeap_.size() == 1 || !younger(oldest, minHeap_.front())));
        if (isRipe(oldest)) {
            std::push_heap(minHeap_.begin(), minHeap_.end(), younger);
        } else {
            minHeap_.pop_back();
        }
    }
    return allRipe;
}
