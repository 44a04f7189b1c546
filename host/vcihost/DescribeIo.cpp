#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/DescribeParts.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/IoRequest.h"
#include "vcihost/IoSample.h"

#include <fmt/format.h>

// Group 20 in words.
namespace vcihost {

namespace {

constexpr uint8_t kGid = IOADC_SERVICE_GID;
constexpr size_t kEntrySize = 2;

std::string SwitchText(const char* what, uint8_t state) {
    return fmt::format("{}: {}", what, Choice(state, "off", "on", "state"));
}

std::optional<Words> Open(std::span<const uint8_t> payload) {
    if (payload.size() != 1) {
        return std::nullopt;
    }
    return Words{SwitchText("IO samples", payload[0]), {{"on", uint64_t{payload[0]}}}};
}

std::optional<Words> Outputs(std::span<const uint8_t> payload) {
    if (payload.empty() || payload.size() != 1 + payload[0] * kEntrySize) {
        return std::nullopt;
    }
    std::string text = "IO outputs:";
    for (size_t at = 1; at < payload.size(); at += kEntrySize) {
        text += fmt::format("{} {} {}", at > 1 ? "," : "", payload[at],
                            Choice(payload[at + 1], "low", "high", "level"));
    }
    return Words{payload[0] == 0 ? text + " none" : text, {{"count", uint64_t{payload[0]}}}};
}

std::optional<Words> Period(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    const uint16_t period = WireReader(payload).U16();
    return Words{fmt::format("IO sample period: {}", period), {{"period", uint64_t{period}}}};
}

std::optional<Words> Trigger(std::span<const uint8_t> payload) {
    if (payload.size() != 1) {
        return std::nullopt;
    }
    return Words{SwitchText("IO triggers", payload[0]), {{"on", uint64_t{payload[0]}}}};
}

std::optional<Words> Sample(std::span<const uint8_t> payload) {
    const auto sample = IoSample::From({kGid, kIoSampleSid, {}, payload, {}});
    if (!sample) {
        return std::nullopt;
    }
    return Words{fmt::format("{}  {}", TimeText(sample->time), sample->Text()),
                 {{"device_ns", sample->time},
                  {"inputs", uint64_t{sample->inputs}},
                  {"outputs", uint64_t{sample->outputs}},
                  {"trigger", uint64_t{sample->trigger}},
                  {"adc1", uint64_t{sample->adc1}},
                  {"adc2", uint64_t{sample->adc2}}}};
}

constexpr ServiceWords kServices[] = {
    {kGid, kIoOpenSid, false, "IO samples", Open, DoneAtWords},
    {kGid, kIoOutputSid, false, "IO outputs", Outputs, DoneAtWords},
    {kGid, kIoPeriodSid, false, "IO sample period", Period, DoneAtWords},
    {kGid, kIoSampleSid, true, "IO sample", nullptr, Sample},
    {kGid, kIoTriggerSid, false, "IO triggers", Trigger, DoneAtWords},
};

} // namespace

std::span<const ServiceWords> IoGroupWords() {
    return kServices;
}

} // namespace vcihost
