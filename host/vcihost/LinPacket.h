#pragma once

#include "vcihost/LinRecord.h"

namespace vcihost {

// What happens on a LIN bus beside frames, by the numbers of the link type.
enum class LinEvent : uint32_t {
    GoToSleep = 0xB0B00001, // by the frame for it
    WakeUp = 0xB0B00004,    // by the signal for it
};

// A frame or an event as a packet of the link type LIN: revision 1, then length, kind and checksum
// type, protected identifier, checksum, errors, and the bytes. Of an error code the packet holds
// the bits that have names.
class LinPacket {
  public:
    explicit LinPacket(const LinFrameRecord& record);
    explicit LinPacket(LinEvent event);

    // Valid as long as the packet.
    std::span<const uint8_t> bytes() const { return std::span(bytes_).first(size_); }

  private:
    static constexpr size_t kHead = 8;

    std::array<uint8_t, kHead + kMostLinBytes> bytes_{};
    size_t size_ = 0;
};

} // namespace vcihost
