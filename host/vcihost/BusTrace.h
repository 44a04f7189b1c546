#pragma once

#include "vcihost/CanFrame.h"

#include <istream>
#include <vector>

namespace vcihost {

// What a virtual bus has carried, from its trace: a line a frame, `queued_ns start_ns end_ns
// channel frame origin result` in device time; `# lost N` tells of frames that the trace could not
// keep, other lines with # are comments. A plain value.
struct BusTrace {
    struct Entry {
        int64_t queued = 0; // nanoseconds of device time: handed to the controller
        int64_t start = 0;  // first bit on the bus
        int64_t end = 0;
        uint8_t channel = 0;
        CanFrame frame;
        bool periodic = false; // sent by the broadcast manager, not through a raw socket
        bool ok = false;       // acknowledged
    };

    std::vector<Entry> entries; // in order of their start
    uint64_t lost = 0;

    // True when the bus of the entry was busy with another frame while it waited.
    bool HadToWait(size_t index) const;

    // Throws NotationError, with `name` and the line, at the first line that is none.
    static BusTrace Read(std::istream& input, const std::string& name);
};

} // namespace vcihost
