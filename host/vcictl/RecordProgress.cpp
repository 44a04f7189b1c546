#include "vcictl/RecordProgress.h"

#include "vcictl/Command.h"

#include <fmt/format.h>

namespace {

constexpr std::chrono::milliseconds kPeriod(500);

} // namespace

RecordProgress::RecordProgress(bool live) : line_(kPeriod, live), start_(LiveLine::Clock::now()) {}

void RecordProgress::Show(const RecordTotals& totals, LiveLine::Clock::time_point now) {
    line_.Show(Text(totals, now), now);
}

void RecordProgress::End(const RecordTotals& totals) const {
    line_.End(Text(totals, LiveLine::Clock::now()));
}

std::string RecordProgress::Text(const RecordTotals& totals,
                                 LiveLine::Clock::time_point now) const {
    const double seconds = std::chrono::duration<double>(now - start_).count();
    std::string text = fmt::format("{} ({}, {}", CountText(totals.Records(), "record", "records"),
                                   CountText(totals.frames, "frame", "frames"),
                                   CountText(totals.errors, "error", "errors"));
    if (totals.wakeups > 0) {
        text += ", " + CountText(totals.wakeups, "wake-up", "wake-ups");
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
                            CountText(totals.unreadable, "message", "messages"));
    }
    // Records carry no number, and the device drops what its ring has no room for without a word.
    return text + ", lost: not measured";
}
