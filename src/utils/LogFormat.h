#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <ratio>
#include <string_view>

// Numbers and times as the text of log lines. Safe from any thread. Numbers depend on nothing but
// their arguments; times depend on the time zone, too, of which each thread remembers what it read.
namespace limlog {

inline constexpr size_t kMaxDigits = 20; // of 2^64 - 1

namespace detail {

inline constexpr std::string_view kDigitPairs =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839404142434445"
    "46474849505152535455565758596061626364656667686970717273747576777879808182838485868788899091"
    "9293949596979899";

// A number in decimal, built from its last digit pair to its first.
class Digits {
  public:
    explicit Digits(uint64_t value) {
        while (value >= 100) {
            PutPair(value % 100);
            value /= 100;
        }
        if (value >= 10) {
            PutPair(value);
        } else {
            *--first_ = static_cast<char>('0' + value);
        }
    }
    Digits(const Digits&) = delete;
    Digits& operator=(const Digits&) = delete;

    const char* data() const { return first_; }
    size_t size() const { return static_cast<size_t>(text_ + kMaxDigits - first_); }

  private:
    void PutPair(uint64_t pair) {
        first_ -= 2;
        std::memcpy(first_, &kDigitPairs[pair * 2], 2);
    }

    char text_[kMaxDigits];
    char* first_ = text_ + kMaxDigits;
};

} // namespace detail

// Writes `value` in decimal; `to` has room for kMaxDigits. Returns the count of bytes.
inline size_t formatUInt(uint64_t value, char* to) {
    const detail::Digits digits(value);
    std::memcpy(to, digits.data(), digits.size());
    return digits.size();
}

// Writes exactly `width` digits: `value` behind leading zeros or, when it has more digits than
// that, its `width` most significant ones. Returns `width`.
inline size_t formatUIntWidth(uint64_t value, char* to, size_t width) {
    const detail::Digits digits(value);
    const size_t zeros = width - std::min(width, digits.size());
    std::memset(to, '0', zeros);
    std::memcpy(to + zeros, digits.data(), width - zeros);
    return width;
}

// One point of the system clock.
class Time {
  public:
    using TimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;
    static constexpr size_t kMaxLength = 29; // "2025-10-23T08:15:30.123+02:00"

    explicit Time(TimePoint point) : point_(point) {}
    static Time now() { return Time(std::chrono::system_clock::now()); }

    // Writes the local time, as in "2025-10-23T08:15:30.123Z"; `to` has room for kMaxLength.
    // Returns the count of bytes. Readers of the console know two habits of this text, which stay:
    // the fraction is the first three digits of the nanosecond count, which is not filled out to
    // nine places (1234567 ns is ".123", 0 ns is nothing at all), and what follows the hours of the
    // offset from UTC is the rest of the offset in seconds, cut to two digits (5.5 h is "+05:18").
    size_t formatMilli(char* to) const {
        using namespace std::chrono;
        const auto second = floor<seconds>(point_);
        const auto nanos = static_cast<uint64_t>((point_ - second).count());
        char* at = to;
        at += formatSecond(second, at);
        if (nanos != 0) {
            *at++ = '.';
            at += formatUIntWidth(nanos, at, 3);
        }
        at += formatOffset(at);
        return static_cast<size_t>(at - to);
    }

  private:
    static constexpr size_t kSecondLength = 19; // "2025-10-23T08:15:30"

    // Time zones change their offset at whole quarters of an hour.
    using Quarters = std::chrono::duration<int64_t, std::ratio<900>>;
    static constexpr auto kNever = std::chrono::sys_seconds::min();

    // What a thread remembers. Offsets are seconds east of UTC.
    struct Cache {
        std::chrono::sys_seconds second = kNever; // the one whose text it is
        char text[kSecondLength] = {};
        std::chrono::sys_seconds quarter = kNever; // the start of the one whose offset it is
        long quarterOffset = 0;
        bool offsetKnown = false;
        long offset = 0; // the one that is shown: read once, and so it does not follow summer time
    };
    static Cache& cache() {
        static thread_local constinit Cache cache;
        return cache;
    }

    static size_t formatSecond(std::chrono::sys_seconds second, char* to) {
        Cache& known = cache();
        if (known.second != second) {
            fill(known, second);
        }
        std::memcpy(to, known.text, kSecondLength);
        return kSecondLength;
    }

    static void fill(Cache& known, std::chrono::sys_seconds second) {
        using namespace std::chrono;
        const auto local = second + seconds(offsetAt(known, second));
        const auto day = floor<days>(local);
        const year_month_day date(day);
        const hh_mm_ss time(local - day);
        const auto number = [](auto value) { return static_cast<uint64_t>(value); };
        char* at = known.text;
        at += formatUIntWidth(number(static_cast<int>(date.year())), at, 4);
        *at++ = '-';
        at += formatUIntWidth(static_cast<unsigned>(date.month()), at, 2);
        *at++ = '-';
        at += formatUIntWidth(static_cast<unsigned>(date.day()), at, 2);
        *at++ = 'T';
        at += formatUIntWidth(number(time.hours().count()), at, 2);
        *at++ = ':';
        at += formatUIntWidth(number(time.minutes().count()), at, 2);
        *at++ = ':';
        formatUIntWidth(number(time.seconds().count()), at, 2);
        known.second = second;
    }

    // The C library is asked once a quarter, since it takes a lock that all threads share.
    static long offsetAt(Cache& known, std::chrono::sys_seconds second) {
        using namespace std::chrono;
        const auto quarter = floor<Quarters>(second);
        if (known.quarter != quarter) {
            const time_t start = system_clock::to_time_t(quarter);
            tm local{};
            localtime_r(&start, &local);
            known.quarterOffset = local.tm_gmtoff;
            known.quarter = quarter;
        }
        if (!known.offsetKnown) {
            known.offset = known.quarterOffset;
            known.offsetKnown = true;
        }
        return known.quarterOffset;
    }

    static size_t formatOffset(char* to) {
        const long offset = cache().offset;
        if (offset == 0) {
            *to = 'Z';
            return 1;
        }
        constexpr uint64_t kHour = 3600; // s
        const auto seconds = static_cast<uint64_t>(offset < 0 ? -offset : offset);
        char* at = to;
        *at++ = offset < 0 ? '-' : '+';
        at += formatUIntWidth(seconds / kHour, at, 2);
        *at++ = ':';
        at += formatUIntWidth(seconds % kHour, at, 2);
        return static_cast<size_t>(at - to);
    }

    TimePoint point_;
};

} // namespace limlog
