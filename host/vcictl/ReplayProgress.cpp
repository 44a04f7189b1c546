#include "vcictl/ReplayProgress.h"

#include <cstdio>

#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds kPeriod(250);

// Back to the line's start, and what the line shows is gone.
constexpr char kErase[] = "\r\x1b[K";

void Print(const std::string& text) {
    // Nobody is left to tell when this fails.
    static_cast<void>(std::fputs(text.c_str(), stderr));
    static_cast<void>(std::fflush(stderr));
}

} // namespace

ReplayProgress::ReplayProgress()
    : live_(isatty(STDERR_FILENO) != 0),
      next_(live_ ? std::chrono::steady_clock::now()
                  : std::chrono::steady_clock::time_point::max()) {}

void ReplayProgress::Show(const vcihost::ReplayPosition& position,
                          std::chrono::steady_clock::time_point now) {
    next_ = now + kPeriod;
    Print(kErase + vcihost::ReplayBarText(position));
}

void ReplayProgress::End(const vcihost::ReplayPosition& position) const {
    if (live_) {
        Print(kErase + vcihost::ReplayBarText(position) + "\n");
    }
}
