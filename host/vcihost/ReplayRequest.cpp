#include "vcihost/ReplayRequest.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/CanRequest.h"

#include <stdexcept>

namespace vcihost {

namespace {

constexpr size_t kHead = 4;      // gid, sid, number of frames
constexpr size_t kEntryHead = 5; // channel, interval
constexpr size_t kFrameHead = 5; // identifier, flags
// A full ring of the longest frames is far from the longest request that the device takes.
static_assert(kHead + kReplayRing * (kEntryHead + kFrameHead + kMostFdBytes) <= kLongestService);

// The end message is gid, sid and the service that has ended.
constexpr uint8_t kEndPayload[] = {kReplayFinishSid};

} // namespace

Bytes ReplayDataRequest(std::span<const ReplayFrame> frames) {
    if (frames.size() > kReplayRing) {
        throw std::invalid_argument("a batch of more frames than the ring holds");
    }
    Bytes service(kHead);
    WireWriter(service)
        .U8(CAN_REPLAY_SERVICE_GID)
        .U8(kReplayDataSid)
        .U16(static_cast<uint16_t>(frames.size()));
    for (const ReplayFrame& frame : frames) {
        service.resize(service.size() + kEntryHead);
        WireWriter(std::span(service).last<kEntryHead>()).U8(frame.channel).U32(frame.interval);
        AppendCanFrame(service, frame.frame);
    }
    return service;
}

Bytes ReplayRequest(uint8_t sid) {
    return {CAN_REPLAY_SERVICE_GID, sid};
}

bool IsReplayReady(const Message& message) {
    return message.gid == CAN_REPLAY_SERVICE_GID && message.sid == kReplayReadySid &&
           message.payload.empty();
}

bool IsReplayEnd(const Message& message) {
    return message.gid == CAN_REPLAY_SERVICE_GID && message.sid == kReplayEndSid &&
           message.payload.size() == sizeof(kEndPayload) && message.payload[0] == kEndPayload[0];
}

} // namespace vcihost
