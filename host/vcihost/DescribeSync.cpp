#include "common/GlobalEnums.h"
#include "vcihost/DescribeParts.h"
#include "vcihost/DeviceTime.h"

#include <fmt/format.h>

// Group 16 in words.
namespace vcihost {

namespace {

constexpr const char* kRequest = "sync request";

std::optional<Words> FollowUp(std::span<const uint8_t> payload) {
    const auto time = ReadTime(payload);
    if (!time) {
        return std::nullopt;
    }
    return Words{"sync follow-up, host time " + TimeText(*time), {{"host_ns", *time}}};
}

std::optional<Words> Node(std::span<const uint8_t> payload) {
    if (payload.size() != 1) {
        return std::nullopt;
    }
    const uint8_t mode = payload[0];
    return Words{"sync node: " + Choice(mode, "be slave", "be master", "mode"),
                 {{"mode", uint64_t{mode}}}};
}

std::optional<Words> State(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    const uint8_t apply = payload[0];
    const uint8_t state = payload[1];
    std::string text;
    if (apply > 1 || state > 1) {
        text = fmt::format("sync state: {} {} (no state)", apply, state);
    } else if (apply == 0) {
        text = "sync state: leave it as it is";
    } else {
        text = fmt::format("sync state: go {}", state == 1 ? "up" : "down");
    }
    return Words{text, {{"apply", uint64_t{apply}}, {"state", uint64_t{state}}}};
}

std::optional<Words> TimeAnswer(std::span<const uint8_t> payload) {
    return TimeWords("", payload);
}

constexpr uint8_t kGid = DEVICE_SYNCHRONIZATION_SERVICE_GID;
constexpr ServiceWords kServices[] = {
    {kGid, kSyncRequestSid, false, kRequest, PlainWords<kRequest>, TimeAnswer},
    {kGid, kSyncFollowUpSid, false, "sync follow-up", FollowUp, TimeAnswer},
    {kGid, kSyncNodeSid, false, "sync node", Node, DoneAtWords},
    {kGid, kSyncStateSid, false, "sync state", State, DoneAtWords},
};

} // namespace

std::span<const ServiceWords> SyncGroupWords() {
    return kServices;
}

} // namespace vcihost
