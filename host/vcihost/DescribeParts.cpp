#include "vcihost/DescribeParts.h"

#include "utils/WireFormat.h"
#include "vcihost/CanChannel.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/LinChannel.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr size_t kTimeLength = 8;
constexpr const char* kDone = "done";

std::string NoCanChannel(uint8_t number) {
    return fmt::format("channel {} (no CAN channel)", number);
}

} // namespace

std::string CanChannelText(uint8_t channel) {
    return channel < kCanChannels ? CanChannelName(channel) : NoCanChannel(channel);
}

std::string CanCodeText(uint8_t code) {
    const auto channel = static_cast<uint8_t>(code - kFirstCanCode);
    return channel < kCanChannels ? CanChannelName(channel) : NoCanChannel(code);
}

std::string LinChannelText(uint8_t channel) {
    return channel < kLinChannels ? LinChannelName(channel)
                                  : fmt::format("channel {} (no LIN channel)", channel);
}

std::string Choice(uint8_t value, const char* zero, const char* one, const char* what) {
    if (value > 1) {
        return fmt::format("{} (no {})", value, what);
    }
    return value == 0 ? zero : one;
}

std::optional<uint64_t> ReadTime(std::span<const uint8_t> payload) {
    if (payload.size() != kTimeLength) {
        return std::nullopt;
    }
    return WireReader(payload).U64();
}

std::optional<Words> TimeWords(const std::string& before, std::span<const uint8_t> payload) {
    const auto time = ReadTime(payload);
    if (!time) {
        return std::nullopt;
    }
    return Words{before + "device time " + TimeText(*time), {{"device_ns", *time}}};
}

std::optional<Words> DoneAtWords(std::span<const uint8_t> payload) {
    return TimeWords("done, ", payload);
}

std::optional<Words> DoneWords(std::span<const uint8_t> payload) {
    return PlainWords<kDone>(payload);
}

} // namespace vcihost
