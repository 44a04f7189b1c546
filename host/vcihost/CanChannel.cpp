#include "vcihost/CanChannel.h"

#include "vcihost/Notation.h"

#include <fmt/format.h>

namespace vcihost {

uint8_t ParseCanChannel(std::string_view text) {
    for (uint8_t channel = 0; channel < kCanChannels; ++channel) {
        if (text == CanChannelName(channel) || text == std::to_string(channel) ||
            text == std::to_string(channel + kFirstCanCode)) {
            return channel;
        }
    }
    throw NotationError(fmt::format("'{}' is no CAN channel; there are can0 to can5, or 0 to 5, or "
                                    "8 to 13 as requests number them",
                                    text));
}

std::string CanChannelName(uint8_t channel) {
    return fmt::format("can{}", channel);
}

} // namespace vcihost
