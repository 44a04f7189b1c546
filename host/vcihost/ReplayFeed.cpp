#include "vcihost/ReplayFeed.h"

#include <algorithm>

namespace vcihost {

void ReplayFeed::Sent(size_t frames) {
    sent_ += frames;
    most_ += frames;
    unknown_ += frames;
}

void ReplayFeed::Taken() {
    unknown_ = 0;
}

void ReplayFeed::Ready() {
    most_ = std::min(most_, kReplayLow - 1 + unknown_);
}

} // namespace vcihost
