#include "vcictl/ReplayProgress.h"

namespace {

constexpr std::chrono::milliseconds kPeriod(250);

} // namespace

ReplayProgress::ReplayProgress() : line_(kPeriod) {}

void ReplayProgress::Show(const vcihost::ReplayPosition& position,
                          LiveLine::Clock::time_point now) {
    line_.Show(vcihost::ReplayBarText(position), now);
}

void ReplayProgress::End(const vcihost::ReplayPosition& position) const {
    if (line_.IsLive()) { // without one the receipt says it all
        line_.End(vcihost::ReplayBarText(position));
    }
}
