#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/CanRecord.h"
#include "vcihost/DescribeParts.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/LinRecord.h"

#include <fmt/format.h>

// Group 9 in words.
namespace vcihost {

namespace {

constexpr uint8_t kGid = DATA_RECORD_SERVICE_GID;

std::optional<Words> Switch(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    const uint8_t state = payload[1];
    return Words{fmt::format("record switch: {}, {}", CanCodeText(payload[0]),
                             Choice(state, "off", "on", "state")),
                 {{"channel", uint64_t{payload[0]}}, {"on", uint64_t{state}}}};
}

// Entries of channel and state; the device takes one.
std::optional<Words> LinSwitch(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint8_t count = reader.U8();
    std::string entries;
    for (unsigned i = 0; i < count && reader.ok(); ++i) {
        const uint8_t channel = reader.U8();
        const bool on = reader.U8() != 0;
        entries +=
            fmt::format("{}{}, {}", i > 0 ? ", " : "", LinChannelText(channel), on ? "on" : "off");
    }
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    return Words{fmt::format("lin record switch: {}", count == 0 ? "nothing" : entries.c_str()),
                 {{"count", uint64_t{count}}, {"entries", entries}}};
}

std::optional<Words> LinFrameWords(std::span<const uint8_t> payload) {
    const auto record = LinFrameRecord::From({kGid, kLinFrameRecordSid, {}, payload, {}});
    if (!record) {
        return std::nullopt;
    }
    const char* const direction = record->received ? "rx" : "tx";
    std::string text = fmt::format("{} {} {} at {}", LinChannelName(record->channel), direction,
                                   record->Text(), TimeText(record->start));
    const std::string error = record->ErrorText();
    text += error.empty() ? "" : ": " + error;
    return Words{text,
                 {{"device_ns", record->start},
                  {"end_ns", record->end},
                  {"channel", LinChannelName(record->channel)},
                  {"direction", direction},
                  {"frame", record->Text()},
                  {"pid", uint64_t{record->pid}},
                  {"length", uint64_t{record->length}},
                  {"checksum", uint64_t{record->checksum}},
                  {"calculated", uint64_t{record->calculated}},
                  {"error_code", uint64_t{record->errorCode}},
                  {"error", error}}};
}

std::optional<Words> LinWakeupWords(std::span<const uint8_t> payload) {
    const auto record = LinWakeupRecord::From({kGid, kLinWakeupRecordSid, {}, payload, {}});
    if (!record) {
        return std::nullopt;
    }
    return Words{fmt::format("{} wake-up signal at {}", LinChannelName(record->channel),
                             TimeText(record->start)),
                 {{"device_ns", record->start},
                  {"end_ns", record->end},
                  {"channel", LinChannelName(record->channel)}}};
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
    {kGid, kLinRecordSwitchSid, false, "lin record switch", LinSwitch, DoneAtWords},
    {kGid, kCanRecordSwitchSid, false, "record switch", Switch, DoneAtWords},
    {kGid, kCanFrameRecordSid, true, "CAN frame record", nullptr, Frame},
    {kGid, kLinFrameRecordSid, true, "LIN frame record", nullptr, LinFrameWords},
    {kGid, kLinWakeupRecordSid, true, "LIN wake-up record", nullptr, LinWakeupWords},
};

} // namespace

std::span<const ServiceWords> RecordGroupWords() {
    return kServices;
}

} // namespace vcihost
