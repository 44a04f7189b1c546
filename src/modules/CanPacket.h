#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// A packet of a CAN interface as the capture hands it over: the cooked header of 20 bytes, then
// what the kernel driver puts there. A view, valid as long as the bytes; bound to no thread.
class CanPacket {
  public:
    static constexpr int kUnknown = 65535;

    explicit CanPacket(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    // False for a packet that ends before its payload; nothing else may then be asked.
    bool HasHead() const { return bytes_.size() >= kPayload; }

    // 0: classic frame, 1: CAN FD frame, kUnknown otherwise.
    int GetType() const {
        switch (bytes_[kProtocolLow]) {
        case kClassic:
            return 0;
        case kFd:
            return 1;
        default:
            return kUnknown;
        }
    }

    uint32_t GetId() const; // with its flag bits, RTR in bit 30
    bool IsError() const { return (bytes_[kIdTop] & kErrorFlag) != 0; }
    int GetRemote() const { return bytes_[kIdTop] >> kRemoteBit & 1; }
    int GetLength() const { return bytes_[kLength]; } // as the driver says, 0 to 255
    int GetBrs() const { return bytes_[kFlags] & 1; }
    int GetESI() const { return bytes_[kFlags] >> 1 & 1; }
    int GetDirection() const { return bytes_[kDirection] == 1 ? 1 : 0; } // 1: received
    int Channel() const { return bytes_[kChannel]; }                     // as the driver says

    // The digit in the name of the interface, when that is "can" and a digit; kUnknown otherwise.
    // Sees the low byte of the interface index alone.
    int GetChannel() const;

    // The first `length` bytes of the payload, or as many as were captured.
    std::span<const uint8_t> Payload(size_t length) const;

    // What an error notification carries as its payload: where its records stand in the channel's
    // error ring. HasSlots() before the other two.
    bool HasSlots() const { return bytes_.size() >= kSlotCount + 1; }
    uint8_t FirstSlot() const { return bytes_[kPayload]; }
    uint8_t SlotCount() const { return bytes_[kSlotCount]; }

    // Offsets from the start of the packet; 20..25 are the driver's own.
    static constexpr size_t kProtocolLow = 1; // low byte of the cooked header's protocol
    static constexpr size_t kIndexLow = 7;    // low byte of its interface index
    static constexpr size_t kId = 26;         // 4 bytes, little-endian
    static constexpr size_t kIdTop = 29;
    static constexpr size_t kLength = 30;
    static constexpr size_t kFlags = 31; // bit 0: BRS, bit 1: ESI
    static constexpr size_t kDirection = 32;
    static constexpr size_t kChannel = 33;
    static constexpr size_t kPayload = 34;
    static constexpr size_t kSlotCount = 35;

  private:
    static constexpr uint8_t kClassic = 12; // ETH_P_CAN
    static constexpr uint8_t kFd = 13;      // ETH_P_CANFD
    static constexpr uint8_t kErrorFlag = 0x20;
    static constexpr int kRemoteBit = 6;

    std::span<const uint8_t> bytes_;
};
