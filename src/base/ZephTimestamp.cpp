#include "base/ZephTimestamp.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include <time.h>

namespace {

constexpr int64_t kNanoSecondsPerMicroSecond = 1000;
constexpr int kTmYearZero = 1900; // struct tm counts years from here

// Truncates towards zero; the plain conversion is undefined for what does not fit.
int64_t ToMicroSeconds(double seconds) {
    constexpr double kLimit = 9.2e18; // just below the range of int64_t
    const double micros = seconds * static_cast<double>(ZephTimestamp::kMicroSecondsPerSecond);
    if (std::isnan(micros)) {
        return 0;
    }
    return static_cast<int64_t>(std::fmin(std::fmax(micros, -kLimit), kLimit));
}

} // namespace

ZephTimestamp ZephTimestamp::now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return ZephTimestamp(int64_t{now.tv_sec} * kMicroSecondsPerSecond +
                         int64_t{now.tv_nsec} / kNanoSecondsPerMicroSecond);
}

std::string ZephTimestamp::toString() const {
    const time_t seconds = microSecondsSinceEpoch_;
    tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        return {};
    }
    char text[64];
    const int length = std::snprintf(text, sizeof(text), "%4d/%02d/%02d %02d:%02d:%02d",
                                     local.tm_year + kTmYearZero, local.tm_mon + 1, local.tm_mday,
                                     local.tm_hour, local.tm_min, local.tm_sec);
    return {text, static_cast<size_t>(length)};
}

ZephTimestamp addTime(ZephTimestamp time, double seconds) {
    const int64_t delta = ToMicroSeconds(seconds);
    int64_t sum = 0;
    if (__builtin_add_overflow(time.microSecondsSinceEpoch(), delta, &sum)) {
        sum = delta < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    }
    return ZephTimestamp(sum);
}
