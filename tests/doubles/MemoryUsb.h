#pragma once

#include "drivers/UsbPort.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

// The USB link in memory: the four regions, and the host's end of them. One for the process, since
// the driver singleton keeps its mappings.
class MemoryUsb {
  public:
    // The first call puts this link in place of the device.
    static MemoryUsb& Instance();

    // A port on this link, for a UsbDriver of a test's own.
    std::unique_ptr<Drivers::UsbPort> MakePort();

    // Indices 0, no fault, a doorbell that succeeds. The ring contents stay, as on the device.
    void Reset();

    // Appends bytes to the read ring as they stand.
    void HostWrite(std::span<const uint8_t> bytes);

    // The next message to the host, cut by the length ring.
    std::optional<std::vector<uint8_t>> HostRead();

    // The six ring indices, in the order of the info page.
    enum Index {
        kReadIn,
        kReadOut,
        kWriteIn,
        kWriteOut,
        kLengthIn,
        kLengthOut
    };
    uint32_t Get(Index index) const;
    void Set(Index index, uint32_t value);

    uint8_t* ReadRing() { return read_.data(); }
    uint8_t* WriteRing() { return write_.data(); }
    uint8_t* LengthRing() { return length_.data(); }

    std::function<int()> doorbell; // called for each doorbell; its result is the ioctl's
    bool failOpen = false;
    off_t failMapAt = -1; // mmap offset of the region whose mapping fails
    int doorbells = 0, mapped = 0, closed = 0;

  private:
    MemoryUsb();
    uint32_t* Word(Index index) const;

    std::vector<uint32_t> info_;
    std::vector<uint8_t> read_, write_, length_;
};
