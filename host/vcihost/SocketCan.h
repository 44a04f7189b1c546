#pragma once

#include "vcihost/CanRecord.h"

#include <array>

// Records as SocketCAN packets: capture files hold them with link type 227. Pure functions and
// plain values, safe from any thread.
namespace vcihost {

// Flags in an identifier.
constexpr uint32_t kSocketCanExtended = 0x80000000;
constexpr uint32_t kSocketCanRemote = 0x40000000;
constexpr uint32_t kSocketCanError = 0x20000000;

// The class of an error frame: a violation of the protocol. The device tells no other.
constexpr uint32_t kSocketCanProtocolError = 0x00000008;

// The identifier with its flags.
uint32_t SocketCanId(const CanFrameRecord& record);
uint32_t SocketCanId(const CanErrorRecord& record);

constexpr size_t kSocketCanErrorBytes = 8;

// The data of an error frame: by whom the frame in error was sent, and the controller's code among
// the bytes that are the controller's own. It has no place for the rest of the record.
std::array<uint8_t, kSocketCanErrorBytes> SocketCanErrorData(const CanErrorRecord& record);

// One packet: identifier, big-endian, length, CAN FD flags, two bytes 0, data.
class SocketCanPacket {
  public:
    explicit SocketCanPacket(const CanFrameRecord& record);
    explicit SocketCanPacket(const CanErrorRecord& record);

    std::span<const uint8_t> bytes() const { return std::span(bytes_).first(size_); }

  private:
    static constexpr size_t kHead = 8;
    static constexpr size_t kMostData = 64;

    void Fill(uint32_t id, uint8_t length, uint8_t flags, std::span<const uint8_t> data);

    std::array<uint8_t, kHead + kMostData> bytes_{};
    size_t size_ = 0;
};

} // namespace vcihost
