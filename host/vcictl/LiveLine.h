#pragma once

#include <chrono>
#include <string>

// A line on standard error that renews itself, where somebody watches. Used on one thread.
class LiveLine {
  public:
    using Clock = std::chrono::steady_clock;

    // Renewed once a `period`. `wanted`: false for no such line on a terminal either.
    explicit LiveLine(std::chrono::milliseconds period, bool wanted = true);

    // False where the line is never shown.
    bool IsLive() const { return live_; }

    // When Show() has something new to tell.
    bool IsDue(Clock::time_point now) const { return now >= next_; }
    void Show(const std::string& text, Clock::time_point now);

    // The last line, which stays where it is; printed where nobody watches as well.
    void End(const std::string& text) const;

  private:
    std::chrono::milliseconds period_;
    bool live_;
    Clock::time_point next_;
};
