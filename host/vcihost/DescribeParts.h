#pragma once

#include "vcihost/Describe.h"

// What the groups that are told in words have in common. Pure functions, safe from any thread.
namespace vcihost {

// "can0"; a number that is no channel as itself. Groups that send the code of a channel, 8 for
// can0, are read by the second one.
std::string CanChannelText(uint8_t channel);
std::string CanCodeText(uint8_t code);
std::string LinChannelText(uint8_t channel);

// Of a byte that is 0 or 1; any other value is told as "2 (no state)", with `what` for "state".
std::string Choice(uint8_t value, const char* zero, const char* one, const char* what = "choice");

// A payload of one time, nanoseconds, and nothing else.
std::optional<uint64_t> ReadTime(std::span<const uint8_t> payload);

// The same of the device's clock: `before`, then "device time 1.000000000 s".
std::optional<Words> TimeWords(const std::string& before, std::span<const uint8_t> payload);

// The answers "done", with the device time or with nothing.
std::optional<Words> DoneAtWords(std::span<const uint8_t> payload);
std::optional<Words> DoneWords(std::span<const uint8_t> payload);

// `Name`, of an empty payload.
template <const char* const& Name>
std::optional<Words> PlainWords(std::span<const uint8_t> payload) {
    if (!payload.empty()) {
        return std::nullopt;
    }
    return Words{Name, {}};
}

} // namespace vcihost
