#pragma once

#include <cstdint>

namespace net {

enum CanFrameType : int {
    CAN_Task = 0,
    CAN_FD_Task = 1,
};

enum CanIdType : int {
    STANDARD = 0,
    EXTENDED = 1,
};

// Bit rates of a channel, in bit/s, at least 1. `data` counts for CAN FD only.
struct CanBitRates {
    int arbitration = 0;
    int data = 0;
};

// The planner's measure of how long a frame of `dlc` payload bytes occupies the bus, in whole
// microseconds. A classic frame counts at most 8 bytes. Throws std::runtime_error when `dlc` is
// negative or, of a CAN FD frame, above 64. Pure.
uint32_t calculateFrameTransmissionTime(const CanBitRates& rates, CanFrameType frame_type,
                                        CanIdType id_type, int dlc);

// Length of the CRC field that is reckoned for a CAN FD frame of `dlc` payload bytes. Throws
// std::runtime_error above 64.
uint32_t getCanFdCrcBits(uint8_t dlc);

} // namespace net
