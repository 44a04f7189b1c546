#pragma once

#include "vcihost/CanChannel.h"
#include "vcihost/ReplayRequest.h"
#include "vcihost/Trace.h"

#include <chrono>
#include <map>

namespace vcihost {

// What becomes of a trace on the device. A plain value.
struct ReplayOptions {
    std::map<std::string, uint8_t> outputs; // interface of the trace to channel; empty: by name
    std::chrono::microseconds gap{0};       // least time between two frames
    std::chrono::microseconds skip{0};      // longer intervals become 0; 0 for none
    bool ignoreTimes = false;               // the gap alone counts
};

// The frames of one pass through a trace, and what became of its time.
struct ReplayPlan {
    std::vector<ReplayFrame> frames;
    uint64_t duration = 0;         // microseconds, from the first frame to the last
    uint64_t skipped = 0;          // intervals that were longer than ReplayOptions::skip
    uint64_t skippedTime = 0;      // microseconds that they had
    uint64_t backward = 0;         // frames that the trace has before the one before them
    uint64_t unmapped = 0;         // frames of interfaces without a channel
    std::vector<uint8_t> channels; // that are used, in ascending order

    // The frames are taken out of `trace`, its counts stay. Without ReplayOptions::outputs an
    // interface can0 to can5 is the channel of this name, and any other is refused; with them what
    // has none is left out. Throws NotationError, with the place in the file.
    static ReplayPlan Make(Trace& trace, const ReplayOptions& options);
};

// "can2=can0": frames of interface can0 go to channel can2. Throws NotationError, also for a second
// channel of one interface.
void AddReplayOutput(ReplayOptions& options, const std::string& text);

} // namespace vcihost
