#include "vcihost/Notation.h"

#include <charconv>
#include <cmath>
#include <optional>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr double kKilo = 1e3;
constexpr double kMega = 1e6;
constexpr double kMostBitRate = 1e9;
constexpr double kDay = 86400e9; // nanoseconds

struct Unit {
    std::string_view suffix;
    double factor;
};

// A decimal number without sign or exponent, in front of `rest`.
std::optional<double> TakeNumber(std::string_view text, std::string_view& rest) {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    if (error != std::errc() || text.starts_with('-') || !std::isfinite(value)) {
        return std::nullopt;
    }
    rest = std::string_view(stop, static_cast<size_t>(end - stop));
    return value;
}

template <size_t N>
std::optional<double> ParseWithUnit(std::string_view text, const Unit (&units)[N]) {
    std::string_view rest;
    const auto number = TakeNumber(text, rest);
    if (!number) {
        return std::nullopt;
    }
    for (const Unit& unit : units) {
        if (rest == unit.suffix) {
            return *number * unit.factor;
        }
    }
    return std::nullopt;
}

} // namespace

double ParseBitRate(const std::string& name, std::string_view text) {
    static constexpr Unit kUnits[] = {{"", 1}, {"k", kKilo}, {"K", kKilo}, {"M", kMega}};
    const auto rate = ParseWithUnit(text, kUnits);
    if (!rate || *rate <= 0 || *rate > kMostBitRate) {
        throw NotationError(
            fmt::format("{}: '{}' is no bit rate; write 500000, 500k or 2M", name, text));
    }
    return *rate;
}

double ParseSamplePoint(const std::string& name, std::string_view text) {
    static constexpr Unit kUnits[] = {{"", 1}, {"%", 0.01}};
    const auto point = ParseWithUnit(text, kUnits);
    if (!point || *point <= 0 || *point >= 1) {
        throw NotationError(
            fmt::format("{}: '{}' is no sample point; write 80% or 0.8", name, text));
    }
    return *point;
}

std::chrono::nanoseconds ParseDuration(const std::string& name, std::string_view text) {
    static constexpr Unit kUnits[] = {{"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};
    const auto time = ParseWithUnit(text, kUnits);
    if (!time || *time > kDay) {
        throw NotationError(fmt::format(
            "{}: '{}' is no time; write it with its unit, as 200us, 10ms or 1s", name, text));
    }
    return std::chrono::nanoseconds(std::llround(*time));
}

std::string SecondsText(uint64_t nanoseconds) {
    constexpr double kSecond = 1e9;
    return fmt::format("{:.6f} s", static_cast<double>(nanoseconds) / kSecond);
}

std::string BitRateText(double bitsPerSecond) {
    if (bitsPerSecond >= kMega) {
        return fmt::format("{:.6g}M", bitsPerSecond / kMega);
    }
    return bitsPerSecond >= kKilo ? fmt::format("{:.6g}k", bitsPerSecond / kKilo)
                                  : fmt::format("{:.6g}", bitsPerSecond);
}

} // namespace vcihost
