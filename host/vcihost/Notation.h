#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

// Quantities as people of this field type them. Pure functions, safe from any thread.
namespace vcihost {

// Text that does not say what it is to say. what() is one line: the text, what is wrong with it and
// what is possible.
class NotationError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A bit rate in bit/s, above 0: "500000", "500k", "83.333k", "2M". `name` stands for it in the
// error.
double ParseBitRate(const std::string& name, std::string_view text);

// A sample point as a part of the bit time, above 0 and below 1: "80%", "0.8", ".8".
double ParseSamplePoint(const std::string& name, std::string_view text);

// A time with its unit, us, ms or s, at most a day: "200us", "10ms", "1.5s".
std::chrono::nanoseconds ParseDuration(const std::string& name, std::string_view text);

// "1.500000 s".
std::string SecondsText(uint64_t nanoseconds);

// "500k", "83.3333k", "2M".
std::string BitRateText(double bitsPerSecond);

} // namespace vcihost
