#include "vcihost/DeviceTime.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr size_t kTimeLength = 8;
constexpr uint8_t kApply = 1; // first byte of a sync state: the device does nothing with 0

} // namespace

std::string TimeText(uint64_t nanoseconds) {
    return fmt::format("{}.{:09} s", nanoseconds / kNanosecondsPerSecond,
                       nanoseconds % kNanosecondsPerSecond);
}

Bytes SyncRequest() {
    return {DEVICE_SYNCHRONIZATION_SERVICE_GID, kSyncRequestSid};
}

Bytes SyncFollowUp(uint64_t hostTime) {
    Bytes service(kShortestService + kTimeLength);
    WireWriter(service).U8(DEVICE_SYNCHRONIZATION_SERVICE_GID).U8(kSyncFollowUpSid).U64(hostTime);
    return service;
}

Bytes SetSyncNode(bool master) {
    return {DEVICE_SYNCHRONIZATION_SERVICE_GID, kSyncNodeSid, static_cast<uint8_t>(master)};
}

Bytes SetSyncState(bool up) {
    return {DEVICE_SYNCHRONIZATION_SERVICE_GID, kSyncStateSid, kApply, static_cast<uint8_t>(up)};
}

std::optional<uint64_t> TimeInAnswer(const Message& message) {
    const bool timed =
        message.gid == DEV_CFG_SERVICE_GID || message.gid == DEVICE_SYNCHRONIZATION_SERVICE_GID ||
        message.gid == DATA_RECORD_SERVICE_GID || message.gid == IOADC_SERVICE_GID ||
        message.gid == NET_CONFIG_SERVICE_GID || message.gid == SEND_NET_FRAME_SERVICE_GID;
    if (!timed || message.payload.size() != kTimeLength) {
        return std::nullopt;
    }
    return WireReader(message.payload).U64();
}

} // namespace vcihost
