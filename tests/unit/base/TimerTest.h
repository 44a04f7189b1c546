#pragma once

#include "base/LoopTest.h"
#include "base/ZephTimerQueue.h"

#include <string>

constexpr int64_t kSoon = 1'000;       // us
constexpr int64_t kNever = 60'000'000; // us: no test runs that long

inline ZephTimestamp In(int64_t micros) {
    return ZephTimestamp(ZephTimestamp::now().microSecondsSinceEpoch() + micros);
}

// A loop for timers, and a log for them to write.
class TimerTest : public testing::Test {
  protected:
    void QuitAfter(int64_t micros) {
        loop.runAt(In(micros), [this] { loop.quit(); });
    }

    ZephEventLoop loop;
    std::string log;
};
