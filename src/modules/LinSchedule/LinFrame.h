#pragma once

#include "drivers/LinOperation.h"

#include <cstdint>
#include <cstring>

#include <linux/can.h>

// The frame that takes a message to the LIN driver: under the protected identifier, without flags.
inline canfd_frame MakeLinFrame(uint8_t pid, const lin_tx_message& message) {
    static_assert(sizeof(canfd_frame) == 72 && sizeof(message) <= CANFD_MAX_DLEN);
    canfd_frame frame{};
    frame.can_id = pid;
    frame.len = sizeof(message);
    std::memcpy(frame.data, &message, sizeof(message));
    return frame;
}
