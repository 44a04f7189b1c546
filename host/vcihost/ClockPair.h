#pragma once

#include "vcihost/Waiter.h"

#include <cstdint>
#include <string>

namespace vcihost {

// One moment on two clocks, by which device time is told as wall-clock time. What both clocks run
// apart from then on is not in it. A plain value.
struct ClockPair {
    uint64_t device = 0; // device time, nanoseconds
    uint64_t wall = 0;   // nanoseconds since 1970
    // Nanoseconds, either way: where in its round trip the stamp was taken.
    uint64_t uncertainty = 0;

    // From the device time in an answer and the moments around it. `wallNow` and `now` are the
    // host's two clocks read together, at any time.
    static ClockPair Make(uint64_t device, Deadline sent, Deadline received, uint64_t wallNow,
                          Deadline now);

    // A device time as wall-clock time, nanoseconds since 1970; 0 for one before that.
    uint64_t ToWall(uint64_t deviceTime) const;

    // "Times are the device's clock told as wall-clock time: time = device time + 4000 ns. ..." and
    // how it was found, for a file's comment.
    std::string Text() const;
};

} // namespace vcihost
