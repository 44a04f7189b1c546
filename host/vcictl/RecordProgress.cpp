#include "vcictl/RecordProgress.h"

#include <cstdio>

#include <unistd.h>

#include <fmt/format.h>

namespace {

constexpr std::chrono::milliseconds kPeriod(500);

// Back to the line's start, and what the line shows is gone.
constexpr char kErase[] = "\r\x1b[K";

std::string Count(uint64_t count, const char* one, const char* many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

void Print(const std::string& text) {
    // Nobody is left to tell when this fails.
    static_cast<void>(std::fputs(text.c_str(), stderr));
    static_cast<void>(std::fflush(stderr));
}

} // namespace

RecordProgress::RecordProgress(bool live)
    : live_(live && isatty(STDERR_FILENO) != 0),
      start_(std::chrono::steady_clock::now()),
      next_(live_ ? start_ : std::chrono::steady_clock::time_point::max()) {}

void RecordProgress::Show(const RecordTotals& totals, std::chrono::steady_clock::time_point now) {
    next_ = now + kPeriod;
    Print(kErase + Text(totals, now));
}

void RecordProgress::End(const RecordTotals& totals) const {
    Print((live_ ? kErase : "") + Text(totals, std::chrono::steady_clock::now()) + "\n");
}

std::string RecordProgress::Text(const RecordTotals& totals,
                                 std::chrono::steady_clock::time_point now) const {
    const double seconds = std::chrono::duration<double>(now - start_).count();
    std::string text = fmt::format("{} ({}, {}", Count(totals.Records(), "record", "records"),
                                   Count(totals.frames, "frame", "frames"),
                                   Count(totals.errors, "error", "errors"));
    if (totals.wakeups > 0) {
        text += ", " + Count(totals.wakeups, "wake-up", "wake-ups");
    }
    text += fmt::format(") in {:.1f} s", seconds);
    if (seconds > 0) {
        text += fmt::format(", {:.0f}/s", static_cast<double>(totals.Records()) / seconds);
    }
    if (totals.filtered > 0) {
        text += fmt::format(", {} filtered out", totals.filtered);
    }
    if (totals.unreadable > 0) {
        text += fmt::format(", {} that cannot be read",
                            Count(totals.unreadable, "message", "messages"));
    }
    // Records carry no number, and the device drops what its ring has no room for without a word.
    return text + ", lost: not measured";
}
