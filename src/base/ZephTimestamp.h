#pragma once

#include <cstdint>
#include <string>
#include <utility>

// A point of the system wall clock in whole microseconds since the epoch. A value: safe to copy and
// read on any thread.
class ZephTimestamp {
  public:
    static constexpr int64_t kMicroSecondsPerSecond = 1'000'000;

    ZephTimestamp() = default; // invalid()
    explicit ZephTimestamp(int64_t microSecondsSinceEpoch)
        : microSecondsSinceEpoch_(microSecondsSinceEpoch) {}

    static ZephTimestamp now();
    static ZephTimestamp invalid() { return ZephTimestamp(); }

    bool valid() const { return microSecondsSinceEpoch_ > 0; }
    int64_t microSecondsSinceEpoch() const { return microSecondsSinceEpoch_; }
    int64_t secondsSinceEpoch() const { return microSecondsSinceEpoch_ / kMicroSecondsPerSecond; }
    void swap(ZephTimestamp& other) { std::swap(*this, other); }

    // Local time as "2024/05/06 07:08:09", of the microsecond count taken as if it were seconds:
    // the text of a real time lies millions of years ahead. Kept, because nobody reads it and the
    // stamps that do get printed are made elsewhere. Empty when the calendar has no such year.
    std::string toString() const;

    friend bool operator<(ZephTimestamp a, ZephTimestamp b) {
        return a.microSecondsSinceEpoch_ < b.microSecondsSinceEpoch_;
    }

  private:
    int64_t microSecondsSinceEpoch_ = 0;
};

// `time` plus `seconds`, which is truncated to whole microseconds and may be negative. A sum that
// does not fit stays at the nearest end of the range; a `seconds` that is no number adds nothing.
ZephTimestamp addTime(ZephTimestamp time, double seconds);
