#pragma once

#include "utils/WireFormat.h"

#include <cstdint>

#include <linux/can.h>

namespace net {

// A frame of either kind.
struct CanFrameData {
    CanFrameData() : fd{} {}

    canid_t& id() { return is_fd ? fd.can_id : std.can_id; }
    canid_t id() const { return is_fd ? fd.can_id : std.can_id; }

    bool is_fd = false;
    union {
        can_frame std;
        canfd_frame fd;
    };
};

// One frame of a send request.
struct CanRequestFrame {
    bool extended = false;   // bit 31 of the id word
    bool bit5 = false;       // classic: remote frame; FD: bit rate switch
    CanFrameData frame_data; // its id is masked and has no flag bits; bit 5 is not applied
};

// The channel 0 to 5, which the caller has checked, and the count of entries.
struct CanRequestHead {
    uint8_t channel;
    uint8_t count;
};

// An entry of a periodic request. Its frame carries all flags.
struct CanPeriodicEntry {
    CanRequestFrame frame;
    uint16_t period; // milliseconds, 0 to stop
};

// Each takes its part from the front of a service section, which `request` begins with; `request`
// fails where the bytes end. Stray bits of id words and flags are dropped. A classic frame keeps a
// length above 8, and gets the first 8 of its bytes.
uint8_t ReadCanRequestChannel(WireReader& request);
CanRequestHead ReadCanRequestHead(WireReader& request);
CanRequestFrame ReadCanFrameEntry(WireReader& request); // of a burst, or the frame of a single send
CanPeriodicEntry ReadCanPeriodicEntry(WireReader& request);

} // namespace net
