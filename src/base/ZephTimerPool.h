#pragma once

#include "base/ZephTimer.h"

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

// The memory of a queue's timers, in numbered slots that are reused, and given back only when the
// pool goes. Any thread may make a timer; the other operations are for the thread of the pool's
// queue, which takes no lock for its own timers.
class ZephTimerPool {
  public:
    using Slot = uint32_t;

    ZephTimerPool() = default;
    ZephTimerPool(const ZephTimerPool&) = delete;
    ZephTimerPool& operator=(const ZephTimerPool&) = delete;
    ~ZephTimerPool();

    // Who asks for a timer: the thread of the queue, or another.
    enum class Maker {
        kOwnThread,
        kOtherThread,
    };

    // A new timer; the other arguments are those of ZephTimer.
    Slot acquire(Maker maker, std::function<void()>&& cb, ZephTimestamp when, double interval,
                 int64_t sequence) {
        const Slot slot = maker == Maker::kOwnThread ? takeOwn() : takeOther();
        // In place of the idle timer, which holds nothing that would have to be destroyed.
        std::construct_at(at(slot), std::move(cb), when, interval, sequence);
        return slot;
    }

    // Ends a timer. What its callback holds is released here.
    void release(Slot slot) {
        at(slot)->dropCallback(); // may run any destructor, so before anything is touched here
        if (makers_[chunkOf(slot)].load(std::memory_order_relaxed) == Maker::kOwnThread) {
            ownFree_.push_back(slot);
        } else {
            releaseOther(slot);
        }
    }

    // Any thread, for a slot that it knows of.
    ZephTimer* at(Slot slot) const {
        const size_t k = chunkOf(slot);
        return chunks_[k].load(std::memory_order_relaxed) + (slot - chunkStart(k));
    }

    // Releases what all callbacks hold, of timers that are waiting as of timers that nobody has
    // entered anywhere yet. The slots stay as they are.
    void dropCallbacks();

  private:
    // Chunk k holds kFirstChunk * 2^k timers, so that a handful of chunks suffices for any number.
    static constexpr Slot kFirstChunk = 64;
    static constexpr size_t kMaxChunks = 24;
    // Slots that were released in no order are spread over the memory: one that will be handed out
    // so many timers from now is fetched into the cache meanwhile.
    static constexpr size_t kPrefetch = 8;
    static constexpr Slot chunkSize(size_t k) { return kFirstChunk << k; }
    static constexpr Slot chunkStart(size_t k) { return chunkSize(k) - kFirstChunk; }
    static size_t chunkOf(Slot slot) {
        return static_cast<size_t>(std::bit_width(slot / kFirstChunk + 1)) - 1;
    }

    Slot takeOwn() {
        if (ownFree_.empty()) {
            growOwn();
        }
        const Slot slot = ownFree_.back();
        ownFree_.pop_back();
        if (ownFree_.size() > kPrefetch) {
            __builtin_prefetch(at(ownFree_[ownFree_.size() - kPrefetch]), 1);
        }
        return slot;
    }
    Slot takeOther();
    void releaseOther(Slot slot);
    void growOwn();
    void grow(std::vector<Slot>& freeSlots, Maker maker); // under mutex_

    std::array<std::atomic<ZephTimer*>, kMaxChunks> chunks_{};
    std::array<std::atomic<Maker>, kMaxChunks> makers_{}; // whose timers a chunk holds
    std::atomic<size_t> chunkCount_{0};
    std::vector<Slot> ownFree_;   // the last released is the first reused
    std::vector<Slot> otherFree_; // under mutex_
    std::mutex mutex_;            // guards growing, too
};
