#pragma once

#include "base/ZephTimerPool.h"

#include <algorithm>
#include <cstdint>
#include <vector>

// Which timers there are, by identity: slot and sequence together. A slot is used again and a
// sequence is not, so an id from before finds nothing. Lives on its queue's thread, and looks at
// no timer: another thread may be making one in a slot that is asked for.
class ActiveTimerSet {
  public:
    using Slot = ZephTimerPool::Slot;

    enum class State : uint8_t {
        kAbsent,   // not in the set
        kActive,   // waits for its expiration
        kExpired,  // taken out by the run that is going on
        kCanceled, // cancelled after that, so it is not to be restarted
    };

    // Enters a timer as active, or makes an expired one active again.
    void insert(Slot slot, int64_t sequence) {
        if (slot >= entries_.size()) {
            entries_.resize(std::max<size_t>(size_t{slot} + 1, entries_.size() * 2));
        }
        entries_[slot] = {sequence, State::kActive};
    }

    // Any slot and any sequence.
    State find(Slot slot, int64_t sequence) const {
        return slot < entries_.size() && entries_[slot].sequence == sequence ? entries_[slot].state
                                                                             : State::kAbsent;
    }

    // Of a slot that has been entered: its state, whatever the sequence.
    State at(Slot slot) const { return entries_[slot].state; }
    void set(Slot slot, State state) { entries_[slot].state = state; }

  private:
    struct Entry {
        int64_t sequence = 0;
        State state = State::kAbsent;
    };

    std::vector<Entry> entries_; // by slot
};
