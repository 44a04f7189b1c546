#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The LIN channels of the device. Pure functions, safe from any thread.
namespace vcihost {

// Requests and records number them from 0.
constexpr uint8_t kLinChannels = 2;

// The device's list of all channels numbers them from here: lin0 is 50.
constexpr uint8_t kFirstLinCode = 50;

// The channel, 0 or 1, of its name lin0 or lin1, its number 0 or 1 or its code 50 or 51. Throws
// NotationError.
uint8_t ParseLinChannel(std::string_view text);

// "lin0".
std::string LinChannelName(uint8_t channel);

// The bit rate of a LIN channel in whole bit/s, as a request carries it: "19200", "10.4k". `name`
// stands for it in the error. Throws NotationError.
uint16_t ParseLinBitRate(const std::string& name, std::string_view text);

// True for names and codes, which no CAN channel has, whether there is such a channel or not.
bool IsLinName(std::string_view text);

} // namespace vcihost
