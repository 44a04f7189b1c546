#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/CanRecord.h"
#include "vcihost/Describe.h"
#include "vcihost/DeviceTime.h"

#include <fmt/format.h>

// Group 9 in words.
namespace vcihost {

namespace {

constexpr uint8_t kGid = DATA_RECORD_SERVICE_GID;
constexpr size_t kTimeLength = 8;

std::optional<Words> Switch(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    const auto channel = static_cast<uint8_t>(payload[0] - kFirstCanCode);
    const uint8_t state = payload[1];
    const std::string name = channel < kCanChannels
                                 ? CanChannelName(channel)
                                 : fmt::format("channel {} (no CAN channel)", payload[0]);
    const char* const text = state == 1 ? "on" : "off";
    return Words{fmt::format("record switch: {}, {}", name,
                             state > 1 ? fmt::format("{} (no state)", state) : text),
                 {{"channel", uint64_t{payload[0]}}, {"on", uint64_t{state}}}};
}

std::optional<Words> SwitchAnswer(std::span<const uint8_t> payload) {
    if (payload.size() != kTimeLength) {
        return std::nullopt;
    }
    const uint64_t time = WireReader(payload).U64();
    return Words{"done, device time " + TimeText(time), {{"device_ns", time}}};
}

std::optional<Words> Frame(std::span<const uint8_t> payload) {
    const auto record = CanFrameRecord::From({kGid, kCanFrameRecordSid, {}, payload, {}});
    if (!record) {
        return std::nullopt;
    }
    const char* const direction = record->received ? "rx" : "tx";
    return Words{fmt::format("{} {} {} at {}", CanChannelName(record->channel), direction,
                             record->Text(), TimeText(record->time)),
                 {{"device_ns", record->time},
                  {"channel", CanChannelName(record->channel)},
                  {"direction", direction},
                  {"frame", record->Text()},
                  {"dlc", uint64_t{record->dlc}}}};
}

constexpr ServiceWords kServices[] = {
    {kGid, kRecordSwitchSid, false, "record switch", Switch, SwitchAnswer},
    {kGid, kCanFrameRecordSid, true, "CAN frame record", nullptr, Frame},
};

} // namespace

std::span<const ServiceWords> RecordGroupWords() {
    return kServices;
}

} // namespace vcihost
