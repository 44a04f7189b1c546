#include "common/GlobalEnums.h"
#include "vcihost/CanRecord.h"
#include "vcihost/Describe.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/ErrorUpload.h"

#include <fmt/format.h>

// Group 104 in words.
namespace vcihost {

namespace {

std::optional<Words> BusTrouble(std::span<const uint8_t> payload) {
    const auto upload = ErrorUpload::From({ERR_INFO_SERVICE_GID, BUS_TROUBLE_SID, {}, payload, {}});
    if (!upload) {
        return std::nullopt;
    }
    return Words{upload->Text(),
                 {{"device_ns", upload->time},
                  {"count", uint64_t{upload->count}},
                  {"bus", upload->BusText()},
                  {"channel", uint64_t{upload->channel}},
                  {"code", uint64_t{upload->code}}}};
}

std::optional<Words> CanError(std::span<const uint8_t> payload) {
    const auto record =
        CanErrorRecord::From({ERR_INFO_SERVICE_GID, kCanErrorRecordSid, {}, payload, {}});
    if (!record) {
        return std::nullopt;
    }
    const char* const direction = record->received ? "rx" : "tx";
    return Words{fmt::format("{} {} {} at {}", CanChannelName(record->channel), direction,
                             record->Text(), TimeText(record->time)),
                 {{"device_ns", record->time},
                  {"channel", CanChannelName(record->channel)},
                  {"direction", direction},
                  {"code", uint64_t{record->code}},
                  {"bit", uint64_t{record->bit}},
                  {"position", uint64_t{record->position}},
                  {"id", uint64_t{record->id}},
                  {"frame_type", uint64_t{record->frameType}},
                  {"protocol", uint64_t{record->protocol}},
                  {"dlc", uint64_t{record->dlc}},
                  {"data", ToHex(record->data)}}};
}

constexpr ServiceWords kServices[] = {
    {ERR_INFO_SERVICE_GID, BUS_TROUBLE_SID, true, "bus trouble", nullptr, BusTrouble},
    {ERR_INFO_SERVICE_GID, kCanErrorRecordSid, true, "CAN error record", nullptr, CanError},
};

} // namespace

std::span<const ServiceWords> ErrorGroupWords() {
    return kServices;
}

} // namespace vcihost
