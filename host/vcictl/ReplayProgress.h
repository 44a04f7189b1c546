#pragma once

#include "vcihost/ReplayBar.h"

#include <chrono>

// How a replay goes, on standard error: a line that renews itself, where somebody watches. Used on
// one thread.
class ReplayProgress {
  public:
    ReplayProgress();

    // When Show() has something new to tell.
    bool IsDue(std::chrono::steady_clock::time_point now) const { return now >= next_; }
    void Show(const vcihost::ReplayPosition& position, std::chrono::steady_clock::time_point now);

    // The last line stays where it is.
    void End(const vcihost::ReplayPosition& position) const;

  private:
    bool live_;
    std::chrono::steady_clock::time_point next_;
};
