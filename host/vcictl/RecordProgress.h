#pragma once

#include "vcictl/LiveLine.h"
#include "vcictl/Recorder.h"

// How a recording goes, on standard error: a live line, and one at the end. Used on one thread.
class RecordProgress {
  public:
    // `live`: there may be a line that renews itself.
    explicit RecordProgress(bool live);

    // When Show() has something new to tell.
    bool IsDue(LiveLine::Clock::time_point now) const { return line_.IsDue(now); }
    void Show(const RecordTotals& totals, LiveLine::Clock::time_point now);

    // The last line.
    void End(const RecordTotals& totals) const;

  private:
    std::string Text(const RecordTotals& totals, LiveLine::Clock::time_point now) const;

    LiveLine line_;
    LiveLine::Clock::time_point start_;
};
