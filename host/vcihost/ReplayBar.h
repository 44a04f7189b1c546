#pragma once

#include <cstdint>
#include <optional>
#include <string>

// How far a replay is, for people. Pure functions, safe from any thread.
namespace vcihost {

struct ReplayPosition {
    uint64_t sent = 0;                   // frames
    std::optional<uint64_t> frames;      // in all; nothing for a replay without an end
    std::optional<uint64_t> leftSeconds; // until the last frame is due
    bool paused = false;
    bool ended = false; // the device has said so
};

// "[########------------]  40 %, 1200 of 3000 frames, 12 s left". Never 100 % before the end.
std::string ReplayBarText(const ReplayPosition& position);

} // namespace vcihost
