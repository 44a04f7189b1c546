#pragma once

#include "utils/UniqueFd.h"

#include <chrono>
#include <cstdint>
#include <vector>

#include <sys/eventfd.h>

// What the reactor and its peers share. Each library's header has three classes:
//   Dispatch(fds)  RunOnce() returns after kEventsPerRun callbacks of `fds`.
//   Post()         RunOnce() returns after kRoundTripsPerRun ways from a loop on this thread to a
//                  loop on another one and back.
//   Timers(count)  see RunTimers() in loop.cpp.
using Clock = std::chrono::steady_clock;
using Micros = std::chrono::microseconds;
using Seconds = std::chrono::duration<double>;

constexpr int64_t kEventsPerRun = 20'000;
constexpr int kRoundTripsPerRun = 1'000;

constexpr Micros kUvTick{1000}; // libuv counts whole milliseconds

// The coarsest clock of the libraries is libevent's, which advances with the kernel's ticks.
constexpr Micros kCoarsestTick{10'000};

inline void SpinUntil(Clock::time_point time) {
    while (Clock::now() <= time) {
    }
}

// Descriptors that are readable and stay so.
inline std::vector<UniqueFd> ReadableFds(int64_t count) {
    std::vector<UniqueFd> fds;
    for (int64_t i = 0; i < count; ++i) {
        fds.emplace_back(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
    }
    return fds;
}
