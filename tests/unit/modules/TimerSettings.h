#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// While one lives, it notes each setting of a timerfd in this program, which still takes place.
class TimerSettings {
  public:
    TimerSettings();
    ~TimerSettings();
    TimerSettings(const TimerSettings&) = delete;
    TimerSettings& operator=(const TimerSettings&) = delete;

    // Nanoseconds of each setting so far, in order; 0 disarms.
    std::vector<int64_t> Taken() const;
    size_t Count() const { return Taken().size(); }
};
