#pragma once

#include "utils/UniqueFd.h"

#include <cstddef>
#include <cstdint>
#include <string>

// What the CAN driver writes for each error on the bus. Little-endian, in memory that it shares.
struct ErrorInfo {
    uint64_t timestamp; // nanoseconds
    uint8_t channel;
    uint8_t errcode; // of the controller
    uint16_t errBit; // bit position of the error
    uint32_t canid;  // of the frame in error
    uint8_t potocolPos;
    uint8_t type;      // one bit
    uint8_t direction; // one bit
    uint8_t potocol;   // one bit
    uint8_t dlc;
    uint8_t esi; // one bit
    uint8_t resv;
    uint8_t length; // bytes of `data` that count; the driver may say more than there are
    uint8_t data[64];
};
static_assert(sizeof(ErrorInfo) == 88);
static_assert(offsetof(ErrorInfo, errBit) == 10 && offsetof(ErrorInfo, canid) == 12 &&
              offsetof(ErrorInfo, potocolPos) == 16 && offsetof(ErrorInfo, length) == 23 &&
              offsetof(ErrorInfo, data) == 24);

// The error ring of one CAN channel: the driver's character device, and the records mapped from it.
// Opened on the main thread before any other thread reads.
class CanErrorRing {
  public:
    static constexpr size_t kSlots = 256; // so a slot number of one byte wraps by itself

    CanErrorRing() = default;
    ~CanErrorRing();
    CanErrorRing(const CanErrorRing&) = delete;
    CanErrorRing& operator=(const CanErrorRing&) = delete;

    // Once. False, with a line on standard output, when the device cannot be opened or mapped.
    bool Open(const std::string& path);

    bool IsOpen() const { return slots_ != nullptr; }

    // A copy of a slot, which the driver may be writing to again while it is read. Open rings only.
    ErrorInfo Read(uint8_t slot) const;

  private:
    UniqueFd chrFd_;
    const ErrorInfo* slots_ = nullptr;
};
