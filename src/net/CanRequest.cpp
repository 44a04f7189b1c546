#include "net/CanRequest.h"

#include "common/CanWire.h"

#include <algorithm>

namespace net {

namespace {

// Takes the data behind an id word and a flags byte: as many bytes as the DLC code says.
CanRequestFrame ReadFrame(uint32_t idWord, uint8_t flags, WireReader& data) {
    CanRequestFrame read;
    read.extended = (idWord & CAN_EFF_FLAG) != 0;
    const canid_t id = idWord & (read.extended ? CAN_EFF_MASK : CAN_SFF_MASK);
    read.bit5 = (flags & kRemoteOrBrs) != 0;
    const uint8_t length = kDlcToLength[flags & kDlcMask];
    const auto bytes = data.Bytes(length);
    read.frame_data.is_fd = (flags & kFdFrame) != 0;
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

} // namespace

uint8_t ReadCanRequestChannel(WireReader& request) {
    request.Skip(2); // gid and sid
    return static_cast<uint8_t>(request.U8() - kFirstCanCode);
}

CanRequestHead ReadCanRequestHead(WireReader& request) {
    const uint8_t channel = ReadCanRequestChannel(request);
    return {channel, request.U8()};
}

CanRequestFrame ReadCanFrameEntry(WireReader& request) {
    const uint32_t idWord = request.U32();
    const uint8_t flags = request.U8();
    return ReadFrame(idWord, flags, request);
}

CanPeriodicEntry ReadCanPeriodicEntry(WireReader& request) {
    const uint32_t idWord = request.U32();
    const uint16_t period = request.U16();
    const uint8_t flags = request.U8();
    CanRequestFrame read = ReadFrame(idWord, flags, request);
    CanFrameData& data = read.frame_data;
    if (read.extended) {
        data.id() |= CAN_EFF_FLAG;
    }
    if (read.bit5 && data.is_fd) {
        data.fd.flags |= CANFD_BRS;
    } else if (read.bit5) {
        data.id() |= CAN_RTR_FLAG;
    }
    return {read, period};
}

} // namespace net
