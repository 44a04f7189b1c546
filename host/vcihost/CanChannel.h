#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The CAN channels of the device. Pure functions, safe from any thread.
namespace vcihost {

constexpr uint8_t kCanChannels = 6;

// Requests number the channels from here: can0 is 8.
constexpr uint8_t kFirstCanCode = 8;

// The channel, 0 to 5, of its name can0 to can5, its number 0 to 5 or its code 8 to 13. Throws
// NotationError.
uint8_t ParseCanChannel(std::string_view text);

// "can0".
std::string CanChannelName(uint8_t channel);

} // namespace vcihost
