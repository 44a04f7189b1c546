#include "vcihost/ReplayBar.h"

#include <algorithm>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint64_t kCells = 20;
constexpr uint64_t kAll = 100;
constexpr uint64_t kMinute = 60;

std::string SecondsText(uint64_t seconds) {
    return seconds < kMinute ? fmt::format("{} s", seconds)
                             : fmt::format("{} min {:02} s", seconds / kMinute, seconds % kMinute);
}

} // namespace

std::string ReplayBarText(const ReplayPosition& position) {
    std::string text;
    if (position.frames) {
        const uint64_t frames = std::max<uint64_t>(*position.frames, 1);
        const auto part = static_cast<uint64_t>(static_cast<double>(position.sent) /
                                                static_cast<double>(frames) * kAll);
        const uint64_t percent = position.ended ? kAll : std::min(part, kAll - 1);
        const uint64_t cells = percent * kCells / kAll;
        text =
            fmt::format("[{}{}] {:>3} %, {} of {} frames", std::string(cells, '#'),
                        std::string(kCells - cells, '-'), percent, position.sent, *position.frames);
    } else {
        text = fmt::format("{} frames", position.sent);
    }
    if (!position.ended && position.leftSeconds) {
        text += fmt::format(", {} left", SecondsText(*position.leftSeconds));
    }
    return text + (position.paused ? ", paused: space goes on" : "");
}

} // namespace vcihost
