#pragma once

#include "base/ZephTimerPool.h"
#include "base/ZephTimestamp.h"

#include <algorithm>
#include <cstdint>
#include <vector>

// The timers that wait, ordered by expiration and then by address. Lives on its queue's thread.
//
// A heap of four children a node: half as deep as one of two, and the children that a step compares
// lie side by side. It orders by time alone, with the times in the heap itself, so that no timer is
// touched; timers of one time leave it together and are put in the order of their addresses then.
class TimerList {
  public:
    using Slot = ZephTimerPool::Slot;

    // `pool`: whose slots these are; outlives the list.
    explicit TimerList(const ZephTimerPool& pool) : pool_(pool) {}

    bool empty() const { return heap_.empty(); }
    size_t size() const { return heap_.size(); }

    // The earliest expiration. Not of an empty list.
    ZephTimestamp firstExpiration() const { return ZephTimestamp(heap_.front().time); }

    // Enters a slot that is not in the list.
    void insert(ZephTimestamp expiration, Slot slot) {
        if (slot >= positions_.size()) {
            positions_.resize(std::max<size_t>(size_t{slot} + 1, positions_.size() * 2));
        }
        const Entry entry{expiration.microSecondsSinceEpoch(), slot};
        heap_.push_back(entry);
        siftUp(static_cast<Position>(heap_.size() - 1), entry);
    }

    // Takes out a slot that is in the list.
    void erase(Slot slot) { removeAt(positions_[slot]); }

    // Takes out all that are due at `now`, those exactly at it included, and appends them in order.
    void takeDue(ZephTimestamp now, std::vector<Slot>& due);

  private:
    using Position = uint32_t;

    static constexpr Position kChildren = 4;

    struct Entry {
        int64_t time; // microseconds since the epoch
        Slot slot;
    };

    void place(Position position, Entry entry) {
        heap_[position] = entry;
        positions_[entry.slot] = position;
    }

    void siftUp(Position hole, Entry entry) {
        while (hole > 0) {
            const Position parent = (hole - 1) / kChildren;
            if (heap_[parent].time <= entry.time) {
                break;
            }
            place(hole, heap_[parent]);
            hole = parent;
        }
        place(hole, entry);
    }

    Position leastChild(Position firstChild) const {
        const Entry* child = &heap_[firstChild];
        const size_t count = heap_.size() - firstChild;
        if (count >= kChildren) {
            // Written so that no branch depends on the times: which child is least is a coin's
            // toss.
            const Position left = child[1].time < child[0].time ? 1 : 0;
            const Position right = child[3].time < child[2].time ? 3 : 2;
            return firstChild + (child[right].time < child[left].time ? right : left);
        }
        Position least = 0;
        for (Position i = 1; i < count; ++i) {
            least = child[i].time < child[least].time ? i : least;
        }
        return firstChild + least;
    }

    void siftDown(Position hole, Entry entry) {
        const auto size = static_cast<Position>(heap_.size());
        for (Position firstChild = hole * kChildren + 1; firstChild < size;
             firstChild = hole * kChildren + 1) {
            const Position least = leastChild(firstChild);
            if (heap_[least].time >= entry.time) {
                break;
            }
            place(hole, heap_[least]);
            hole = least;
        }
        place(hole, entry);
    }

    void removeAt(Position position) {
        const Entry last = heap_.back();
        heap_.pop_back();
        if (position == heap_.size()) {
            return; // it was the last one itself
        }
        if (position > 0 && last.time < heap_[(position - 1) / kChildren].time) {
            siftUp(position, last);
        } else {
            siftDown(position, last);
        }
    }

    const ZephTimerPool& pool_;
    std::vector<Entry> heap_;
    std::vector<Position> positions_; // by slot; meaningful for slots in the list
};
