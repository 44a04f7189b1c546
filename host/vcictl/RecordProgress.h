#pragma once

#include "vcictl/Recorder.h"

#include <chrono>

// How a recording goes, on standard error: a line that renews itself, where somebody watches, and
// one at the end. Used on one thread.
class RecordProgress {
  public:
    // `live`: there may be a line that renews itself.
    explicit RecordProgress(bool live);

    // When Show() has something new to tell.
    bool IsDue(std::chrono::steady_clock::time_point now) const { return now >= next_; }
    void Show(const RecordTotals& totals, std::chrono::steady_clock::time_point now);

    // The last line.
    void End(const RecordTotals& totals) const;

  private:
    std::string Text(const RecordTotals& totals, std::chrono::steady_clock::time_point now) const;

    bool live_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point next_;
};
