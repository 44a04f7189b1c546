#include "base/ZephTimerId.h"

#include "base/TimerTest.h"
#include "base/ZephEventLoopThread.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

using ZephTimerIdTest = TimerTest;

TEST_F(ZephTimerIdTest, SetIntervalLeavesThePendingFiringAndHoldsFromTheNext) {
    // Ticks every 5 ms; made 500 ms while the first is pending, so one tick comes before the mark
    // and the second after it, at least 500 ms after the first.
    std::vector<ZephTimestamp> ticks;
    const ZephTimerId id = loop.runEvery(0.005, [&] {
        ticks.push_back(ZephTimestamp::now());
        log += "tick ";
        if (ticks.size() == 2) {
            loop.quit();
        }
    });
    id.SetInterval(0.5);
    loop.runAt(In(100'000), [this] { log += "mark "; });
    RunUntilQuit(loop);
    EXPECT_EQ(log, "tick mark tick ");
    EXPECT_FALSE(ticks.at(1) <
                 addTime(ticks.at(0), 0.499)); // counts from the run, not its callback
    loop.cancel(id);
}

TEST_F(ZephTimerIdTest, SetIntervalLeavesATimerThatFiresOnceAsItIs) {
    int fired = 0;
    const ZephTimerId id = loop.runAt(In(kSoon), [&] { ++fired; });
    id.SetInterval(0.001);
    QuitAfter(20'000);
    RunUntilQuit(loop);
    EXPECT_EQ(fired, 1);
}

TEST_F(ZephTimerIdTest, IntervalSetToZeroKeepsARepeatingTimerRepeating) {
    int fired = 0;
    ZephTimerId id;
    id = loop.runEvery(0.001, [&] {
        if (++fired == 5) {
            loop.quit();
        }
    });
    id.SetInterval(0.0);
    RunUntilQuit(loop);
    EXPECT_EQ(fired, 5);
    loop.cancel(id);
}

TEST_F(ZephTimerIdTest, ResetCallbackHoldsForAllLaterFirings) {
    const ZephTimerId id = loop.runEvery(0.001, [this] { log += "old "; });
    id.ResetCallback([this] {
        log += "new ";
        if (log.size() == 12) {
            loop.quit();
        }
    });
    RunUntilQuit(loop);
    EXPECT_EQ(log, "new new new ");
    loop.cancel(id);
}

TEST_F(ZephTimerIdTest, TimerMayReplaceItsOwnCallbackWhileItRuns) {
    ZephTimerId id;
    const std::string text = "a text that is too long for the string to hold in itself ";
    id = loop.runEvery(0.001, [this, &id, text] {
        id.ResetCallback([this] {
            log += "new";
            loop.quit();
        });
        log += text; // this callback is still whole
    });
    RunUntilQuit(loop);
    EXPECT_EQ(log, text + "new");
    loop.cancel(id);
}

TEST_F(ZephTimerIdTest, ChangesToASpentTimerAreHarmless) {
    const ZephTimerId spent = loop.runAt(In(kSoon), [this] { loop.quit(); });
    RunUntilQuit(loop);
    const ZephTimerId cancelled = loop.runEvery(60, [] {});
    loop.cancel(cancelled);
    for (const ZephTimerId& id : {spent, cancelled, ZephTimerId()}) {
        id.ResetCallback([this] { log += "wrong"; });
        id.SetInterval(0.001);
        loop.cancel(id);
    }
    // Whatever took the slots over is not touched either.
    loop.runAt(In(kSoon), [this] { log += "right"; });
    QuitAfter(10'000);
    RunUntilQuit(loop);
    EXPECT_EQ(log, "right");
}

TEST_F(ZephTimerIdTest, StaleSequenceOfAReusedAddressFindsNothing) {
    const ZephTimerId stale = loop.runAt(In(kNever), [] {});
    loop.cancel(stale);
    const ZephTimerId reused = loop.runAt(In(kSoon), [this] {
        log += "fired";
        loop.quit();
    });
    ASSERT_EQ(reused.GetTimer(), stale.GetTimer());
    ASSERT_NE(reused.GetSeq(), stale.GetSeq());
    loop.cancel(stale);
    RunUntilQuit(loop);
    EXPECT_EQ(log, "fired");
}

TEST_F(ZephTimerIdTest, IdOfAnotherQueueFindsNothing) {
    auto other = std::make_unique<ZephEventLoop>();
    const ZephTimerId foreign = other->runAt(In(kNever), [] {});
    const ZephTimerId own = loop.runAt(In(kSoon), [this] {
        log += "fired";
        loop.quit();
    });
    ASSERT_EQ(own.GetSeq(), foreign.GetSeq());
    loop.cancel(foreign);
    other.reset();
    loop.cancel(foreign); // not even when there is nothing behind its address any more
    RunUntilQuit(loop);
    EXPECT_EQ(log, "fired");
}

TEST_F(ZephTimerIdTest, TimersOfADestroyedLoopEndWithoutRunning) {
    const auto held = std::make_shared<int>(0);
    {
        ZephEventLoop short_lived;
        short_lived.runAt(In(0), [this, held] { log += "wrong"; });
        // Not even entered: the functor that would do it never runs.
        std::thread([&] { short_lived.runAt(In(0), [held] {}); }).join();
        EXPECT_EQ(held.use_count(), 3);
    }
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(log, "");
}

TEST_F(ZephTimerIdTest, WhatADroppedTimerHoldsMayStillAddAndCancelTimers) {
    auto owner = std::make_unique<ZephEventLoop>();
    ZephEventLoop* going = owner.get();
    const ZephTimerId other = going->runAt(In(kNever), [] {});
    int drops = 0;
    going->runAt(In(kNever), [held = std::shared_ptr<void>(nullptr, [&](void*) {
                                  ++drops;
                                  going->cancel(other);
                                  going->cancel(going->runAfter(1, [] {}));
                              })] {});
    EXPECT_EQ(drops, 0);
    owner.reset();
    EXPECT_EQ(drops, 1);
}

TEST_F(ZephTimerIdTest, AnyThreadMayAddChangeAndCancel) {
    std::thread([this] {
        const ZephTimerId never = loop.runAt(In(kSoon), [this] { log += "wrong "; });
        loop.cancel(never);
        const ZephTimerId changed = loop.runEvery(60, [this] { log += "wrong "; });
        changed.ResetCallback([this] { log += "wrong "; });
        changed.SetInterval(1);
        loop.cancel(changed);
        const ZephTimerId kept = loop.runAt(In(kSoon), [this] { log += "wrong "; });
        kept.ResetCallback([this] {
            log += "kept";
            loop.quit();
        });
    }).join();
    RunUntilQuit(loop);
    EXPECT_EQ(log, "kept");
}

TEST_F(ZephTimerIdTest, ManyThreadsAddChangeAndCancelWhileTimersFire) {
    constexpr int kThreads = 4;
    constexpr int kEach = 2'000;
    const QuietOutput quiet;
    std::atomic<int> fired{0};
    std::atomic<int> wrong{0};
    {
        ZephEventLoopThread thread;
        ZephEventLoop* timers = thread.startLoop();
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < kEach; ++i) {
                    timers->runAfter(0.0001 * (i % 7), [&] { ++fired; });
                    const ZephTimerId id = timers->runEvery(60, [&] { ++wrong; });
                    id.SetInterval(30);
                    id.ResetCallback([&] { ++wrong; });
                    timers->cancel(id);
                    timers->cancel(id);
                }
            });
        }
        for (std::thread& each : threads) {
            each.join();
        }
        // Queued behind all additions; the timers due by then have fired before it does.
        std::promise<void> done;
        timers->runAfter(0.05, [&] { done.set_value(); });
        ASSERT_EQ(done.get_future().wait_for(kDeadline), std::future_status::ready);
    }
    EXPECT_EQ(fired, kThreads * kEach);
    EXPECT_EQ(wrong, 0);
}

TEST_F(ZephTimerIdTest, TimersFromOtherThreadsReuseTheirSlots) {
    std::vector<ZephTimer*> addresses;
    for (int i = 0; i < 200; ++i) {
        std::thread([&] {
            const ZephTimerId id = loop.runAfter(60, [] {});
            addresses.push_back(id.GetTimer());
            loop.cancel(id);
        }).join();
        RunPending(loop);
    }
    std::sort(addresses.begin(), addresses.end());
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
    EXPECT_EQ(addresses.size(), 1U);
}

} // namespace
