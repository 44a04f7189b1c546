#pragma once

#include "modules/ReplayTypes.h"

#include <atomic>
#include <cstddef>
#include <vector>

// A ring of frames from one writer to one reader, without locks. One slot stays free, which tells a
// full ring from an empty one, so that it holds 511.
class Kfifo {
  public:
    // Writer. False, with nothing done, when the ring is full.
    bool push(const ReplayCanFrameType& frame) {
        const size_t head = queueHead.load(std::memory_order_relaxed);
        const size_t next = (head + 1) & kMask;
        if (next == queueTail.load(std::memory_order_acquire)) {
            return false;
        }
        replayFrameQueue[head] = frame;
        queueHead.store(next, std::memory_order_release);
        return true;
    }

    // Reader. Copies the oldest frame out and leaves it there; false when the ring is empty.
    bool peek(ReplayCanFrameType& frame) const {
        const size_t tail = queueTail.load(std::memory_order_relaxed);
        if (tail == queueHead.load(std::memory_order_acquire)) {
            return false;
        }
        frame = replayFrameQueue[tail];
        return true;
    }

    // Reader. Takes the oldest frame; false when the ring is empty.
    bool pop(ReplayCanFrameType& frame) {
        const size_t tail = queueTail.load(std::memory_order_relaxed);
        if (tail == queueHead.load(std::memory_order_acquire)) {
            return false;
        }
        frame = replayFrameQueue[tail];
        queueTail.store((tail + 1) & kMask, std::memory_order_release);
        return true;
    }

    // Reader, or the writer while the reader rests. It is the reader's index that moves, so that
    // frames which are pushed meanwhile stay whole.
    void clear() {
        queueTail.store(queueHead.load(std::memory_order_acquire), std::memory_order_release);
    }

    // Reader and writer. The other side may change the answer at once, but only its own way: for
    // the reader the ring fills, for the writer it empties.
    size_t size() const {
        return (queueHead.load(std::memory_order_acquire) -
                queueTail.load(std::memory_order_acquire)) &
               kMask;
    }
    bool empty() const { return size() == 0; }
    bool full() const { return size() == kMask; }
    bool halfEmpty() const { return size() < kSlots / 2; }

  private:
    static constexpr size_t kSlots = 512; // a power of two
    static constexpr size_t kMask = kSlots - 1;
    static constexpr size_t kCacheLine = 64; // bytes; the sides would slow each other down on one

    alignas(kCacheLine) std::atomic<size_t> queueHead{0}; // the writer's
    std::vector<ReplayCanFrameType> replayFrameQueue = std::vector<ReplayCanFrameType>(kSlots);
    alignas(kCacheLine) std::atomic<size_t> queueTail{0}; // the reader's
};
