#pragma once

#include "vcictl/LiveLine.h"
#include "vcihost/ReplayBar.h"

// How a replay goes, on standard error: a live line, where somebody watches. Used on one thread.
class ReplayProgress {
  public:
    ReplayProgress();

    // When Show() has something new to tell.
    bool IsDue(LiveLine::Clock::time_point now) const { return line_.IsDue(now); }
    void Show(const vcihost::ReplayPosition& position, LiveLine::Clock::time_point now);

    // The last line stays where it is.
    void End(const vcihost::ReplayPosition& position) const;

  private:
    LiveLine line_;
};
