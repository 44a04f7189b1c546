#include "base/ZephTimerPool.h"

#include <cstdio>
#include <cstdlib>

ZephTimerPool::~ZephTimerPool() {
    for (const std::atomic<ZephTimer*>& chunk : chunks_) {
        delete[] chunk.load();
    }
}

void ZephTimerPool::dropCallbacks() {
    for (size_t k = 0; k < chunkCount_.load(std::memory_order_acquire); ++k) {
        ZephTimer* chunk = chunks_[k].load(std::memory_order_relaxed);
        for (Slot i = 0; i < chunkSize(k); ++i) {
            chunk[i].ResetCallBack({}); // empty before a destructor of the old one may look
        }
    }
}

ZephTimerPool::Slot ZephTimerPool::takeOther() {
    const std::lock_guard lock(mutex_);
    if (otherFree_.empty()) {
        grow(otherFree_, Maker::kOtherThread);
    }
    const Slot slot = otherFree_.back();
    otherFree_.pop_back();
    return slot;
}

void ZephTimerPool::releaseOther(Slot slot) {
    const std::lock_guard lock(mutex_);
    otherFree_.push_back(slot);
}

void ZephTimerPool::growOwn() {
    const std::lock_guard lock(mutex_);
    grow(ownFree_, Maker::kOwnThread);
}

void ZephTimerPool::grow(std::vector<Slot>& freeSlots, Maker maker) {
    const size_t k = chunkCount_.load(std::memory_order_relaxed);
    if (k == kMaxChunks) {
        std::fputs("ZephTimerPool: more than a thousand million timers; cancel some\n", stderr);
        abort();
    }
    // Room for every slot there can be, so that releasing one never allocates.
    freeSlots.reserve(size_t{chunkStart(k)} + chunkSize(k));
    chunks_[k].store(new ZephTimer[chunkSize(k)], std::memory_order_relaxed);
    makers_[k].store(maker, std::memory_order_relaxed);
    chunkCount_.store(k + 1, std::memory_order_release);
    for (Slot slot = chunkStart(k) + chunkSize(k); slot-- > chunkStart(k);) {
        freeSlots.push_back(slot); // the lowest address goes first
    }
}
