#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// While one lives, it notes each setting of a timerfd in this program, which still takes place. One
// at a time.
class TimerSettings {
  public:
    TimerSettings();
    ~TimerSettings();
    TimerSettings(const TimerSettings&) = delete;
    TimerSettings& operator=(const TimerSettings&) = delete;

    // From now on a setting of `asked` is noted as it is, and `set` takes its place. Nanoseconds.
    void Replace(int64_t asked, int64_t set);

    // Nanoseconds of each setting so far, in order; 0 disarms.
    std::vector<int64_t> Taken() const;
    size_t Count() const { return Taken().size(); }
};
