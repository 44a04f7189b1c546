#pragma once

#include "modules/ReplayTypes.h"

#include <atomic>
#include <cstdint>

// The state of a replay, which the main thread changes by command and the replay thread by what it
// finds. Commands are counted beside the state: what the thread concludes from a look at the state
// and at the ring holds only as long as no command has come since, not even one that leads to the
// same state.
class SharedReplayState {
  public:
    using Look = uint32_t; // state and count of one moment

    static ReplayState StateOf(Look look) { return static_cast<ReplayState>(look & kStateMask); }

    Look Get() const { return word_.load(); }

    // Main thread. Returns the state that the command found.
    ReplayState Command(ReplayState next) {
        Look before = word_.load();
        while (!word_.compare_exchange_weak(before, ((before | kStateMask) + 1) | Bits(next))) {
        }
        return StateOf(before);
    }

    // Replay thread. False, with nothing done, when a command has come since `seen`.
    bool Follow(Look seen, ReplayState next) {
        return word_.compare_exchange_strong(seen, (seen & ~kStateMask) | Bits(next));
    }

    // Replay thread, when it gives up: IDLE, whatever command has come.
    void Abandon() { word_.fetch_and(~kStateMask); }

  private:
    static constexpr Look kStateMask = 0xFF;
    static Look Bits(ReplayState state) { return static_cast<Look>(state); }

    static_assert(static_cast<Look>(ReplayState::IDLE) == 0, "Abandon() clears the bits");
    std::atomic<Look> word_{0}; // bits 0 to 7 the state, above them the count
};
