#pragma once

#include "utils/WireFormat.h"

#include <cstdint>

#include <linux/can.h>

namespace net {

// A frame of either kind.
struct CanFrameData {
    CanFrameData() : fd{} {}

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

// Takes the data behind an id word and a flags byte: as many bytes as the DLC code says. Stray bits
// of both are dropped. A classic frame keeps a length above 8, and gets the first 8 of its bytes.
// `data` fails where the bytes end.
CanRequestFrame ReadCanFrame(uint32_t idWord, uint8_t flags, WireReader& data);

} // namespace net
