#include "vcihost/LinChannel.h"

#include "vcihost/Notation.h"

#include <cmath>
#include <limits>

#include <fmt/format.h>

namespace vcihost {

uint8_t ParseLinChannel(std::string_view text) {
    for (uint8_t channel = 0; channel < kLinChannels; ++channel) {
        if (text == LinChannelName(channel) || text == std::to_string(channel) ||
            text == std::to_string(channel + kFirstLinCode)) {
            return channel;
        }
    }
    throw NotationError(
        fmt::format("'{}' is no LIN channel; there are lin0 and lin1, or 0 and 1, or 50 and 51 as "
                    "the list of all channels numbers them",
                    text));
}

std::string LinChannelName(uint8_t channel) {
    return fmt::format("lin{}", channel);
}

uint16_t ParseLinBitRate(const std::string& name, std::string_view text) {
    constexpr auto kMost = std::numeric_limits<uint16_t>::max();
    const double rate = ParseBitRate(name, text);
    if (rate > kMost || rate != std::floor(rate)) {
        throw NotationError(fmt::format("{}: '{}' is no LIN bit rate; write whole bit/s up to {}, "
                                        "most buses have 9600 or 19200",
                                        name, text, kMost));
    }
    return static_cast<uint16_t>(rate);
}

bool IsLinName(std::string_view text) {
    return text.starts_with("lin") || text == std::to_string(kFirstLinCode) ||
           text == std::to_string(kFirstLinCode + 1);
}

} // namespace vcihost
