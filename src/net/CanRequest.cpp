#include "net/CanRequest.h"

#include <algorithm>
#include <array>

namespace net {

namespace {

// Flags byte of a frame. Bits 4 and 7 mean nothing.
constexpr uint8_t kDlcMask = 0x0F;
constexpr uint8_t kRemoteOrSwitch = 1 << 5;
constexpr uint8_t kFd = 1 << 6;

// Payload length of a DLC code.
constexpr std::array<uint8_t, 16> dlcToLength_{0, 1,  2,  3,  4,  5,  6,  7,
                                               8, 12, 16, 20, 24, 32, 48, 64};

} // namespace

CanRequestFrame ReadCanFrame(uint32_t idWord, uint8_t flags, WireReader& data) {
    CanRequestFrame read;
    read.extended = (idWord & CAN_EFF_FLAG) != 0;
    const canid_t id = idWord & (read.extended ? CAN_EFF_MASK : CAN_SFF_MASK);
    read.bit5 = (flags & kRemoteOrSwitch) != 0;
    const uint8_t length = dlcToLength_[flags & kDlcMask];
    const auto bytes = data.Bytes(length);
    read.frame_data.is_fd = (flags & kFd) != 0;
    if (read.frame_data.is_fd) {
        canfd_frame& frame = read.frame_data.fd;
        frame.can_id = id;
        frame.len = length;
        std::copy(bytes.begin(), bytes.end(), frame.data);
    } else {
        can_frame& frame = read.frame_data.std = can_frame{};
        frame.can_id = id;
        frame.can_dlc = length; // above 8 the kernel refuses it
        const auto kept = bytes.first(std::min<size_t>(bytes.size(), CAN_MAX_DLEN));
        std::copy(kept.begin(), kept.end(), frame.data);
    }
    return read;
}

} // namespace net
