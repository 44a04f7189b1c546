#pragma once

#include "net/CapturedPacket.h"

#include <cstdint>
#include <vector>

// A packet of a LIN interface as the capture hands it over; but for the element and the direction
// it is noise that nobody may read.
inline CapturedPacket MakeLinPacket(uint8_t dataIndex, uint8_t direction = 1) {
    CapturedPacket packet;
    packet.bytes.assign(92, 0xEE);
    packet.bytes[34] = dataIndex;
    packet.bytes[35] = direction;
    return packet;
}

// A record of the driver whose every byte is another: the offset and `seed`.
inline std::vector<uint8_t> MakeLinDetil(uint8_t seed, uint32_t linId, uint32_t errorCode) {
    std::vector<uint8_t> bytes(112);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(i + seed);
    }
    for (size_t i = 0; i < 4; ++i) {
        bytes[i] = static_cast<uint8_t>(linId >> 8 * i);
        bytes[4 + i] = static_cast<uint8_t>(errorCode >> 8 * i);
    }
    return bytes;
}
