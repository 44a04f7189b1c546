#include "vcictl/LiveLine.h"

#include <cstdio>

#include <unistd.h>

namespace {

// Back to the line's start, and what the line shows is gone.
constexpr char kErase[] = "\r\x1b[K";

void Print(const std::string& text) {
    // Nobody is left to tell when this fails.
    static_cast<void>(std::fputs(text.c_str(), stderr));
    static_cast<void>(std::fflush(stderr));
}

} // namespace

LiveLine::LiveLine(std::chrono::milliseconds period, bool wanted)
    : period_(period),
      live_(wanted && isatty(STDERR_FILENO) != 0),
      next_(live_ ? Clock::now() : Clock::time_point::max()) {}

void LiveLine::Show(const std::string& text, Clock::time_point now) {
    if (live_) {
        next_ = now + period_;
        Print(kErase + text);
    }
}

void LiveLine::End(const std::string& text) const {
    Print((live_ ? kErase : "") + text + "\n");
}
