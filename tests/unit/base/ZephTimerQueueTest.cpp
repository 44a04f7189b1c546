#include "base/ZephTimerQueue.h"

#include "base/LoopTest.h"
#include "base/ZephEventLoopThread.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

ZephTimestamp In(int64_t micros) {
    return ZephTimestamp(ZephTimestamp::now().microSecondsSinceEpoch() + micros);
}

constexpr int64_t kSoon = 1'000; // us

class ZephTimerQueueTest : public testing::Test {
  protected:
    // Timers for one time, made so that the order of their addresses is not that of their making.
    // Slots are reused last first, so releasing them in order hands them out in reverse.
    std::vector<ZephTimerId> SameTimeInReverse(size_t count, ZephTimestamp when,
                                               const std::function<void(size_t)>& callback) {
        std::vector<ZephTimerId> spent;
        for (size_t i = 0; i < count; ++i) {
            spent.push_back(loop.runAt(when, [] {}));
        }
        for (const ZephTimerId& id : spent) {
            loop.cancel(id);
        }
        std::vector<ZephTimerId> ids;
        for (size_t i = 0; i < count; ++i) {
            ids.push_back(loop.runAt(when, [callback, i] { callback(i); }));
        }
        return ids;
    }

    void QuitAfter(int64_t micros) {
        loop.runAt(In(micros), [this] { loop.quit(); });
    }

    ZephEventLoop loop;
    std::string log;
};

TEST_F(ZephTimerQueueTest, SequencesCountFromZeroForEachQueue) {
    ZephEventLoop other;
    EXPECT_EQ(loop.runAfter(60, [] {}).GetSeq(), 0);
    EXPECT_EQ(loop.runEvery(60, [] {}).GetSeq(), 1);
    EXPECT_EQ(loop.runAt(In(60'000'000), [] {}).GetSeq(), 2);
    EXPECT_EQ(other.runAfter(60, [] {}).GetSeq(), 0);
    EXPECT_EQ(ZephTimerId().GetSeq(), 0);
    EXPECT_EQ(ZephTimerId().GetTimer(), nullptr);
}

TEST_F(ZephTimerQueueTest, TimersFireInTheOrderOfTheirTimes) {
    const ZephTimestamp when = In(kSoon);
    const auto at = [&](int64_t micros) {
        return ZephTimestamp(when.microSecondsSinceEpoch() + micros);
    };
    loop.runAt(at(3), [this] {
        log += "3 ";
        loop.quit();
    });
    loop.runAt(at(1), [this] { log += "1 "; });
    loop.runAt(at(2), [this] { log += "2 "; });
    loop.runAt(at(0), [this] { log += "0 "; });
    RunUntilQuit(loop);
    EXPECT_EQ(log, "0 1 2 3 ");
}

TEST_F(ZephTimerQueueTest, TimersOfOneTimeFireInOneRunInTheOrderOfTheirAddresses) {
    std::vector<size_t> fired;
    int iterations = 0;
    const std::vector<ZephTimerId> ids = SameTimeInReverse(5, In(kSoon), [&](size_t i) {
        fired.push_back(i);
        if (fired.size() == 1) {
            loop.queueInLoop([&] { // runs after the whole run
                iterations = static_cast<int>(fired.size());
                loop.quit();
            });
        }
    });
    RunUntilQuit(loop);
    ASSERT_EQ(fired.size(), 5U);
    EXPECT_EQ(iterations, 5);
    for (size_t i = 1; i < fired.size(); ++i) {
        EXPECT_LT(reinterpret_cast<uintptr_t>(ids[fired[i - 1]].GetTimer()),
                  reinterpret_cast<uintptr_t>(ids[fired[i]].GetTimer()));
    }
    EXPECT_EQ(fired, (std::vector<size_t>{4, 3, 2, 1, 0}));
}

TEST_F(ZephTimerQueueTest, TimeThatHasPassedFiresAfterAHundredMicroseconds) {
    using std::chrono::steady_clock;
    const auto start = steady_clock::now();
    steady_clock::time_point fired;
    loop.runAt(ZephTimestamp::invalid(), [&] {
        fired = steady_clock::now();
        loop.quit();
    });
    RunUntilQuit(loop);
    EXPECT_GE(fired - start, std::chrono::microseconds(100));
}

TEST_F(ZephTimerQueueTest, TimerDoesNotFireBeforeItsTime) {
    const ZephTimestamp when = In(20'000);
    ZephTimestamp fired;
    loop.runAt(when, [&] {
        fired = ZephTimestamp::now();
        loop.quit();
    });
    RunUntilQuit(loop);
    EXPECT_FALSE(fired < when);
}

TEST_F(ZephTimerQueueTest, TimerThatCancelsItselfIsNotRestartedAndEndsAfterItsRun) {
    const auto held = std::make_shared<int>(0);
    int fired = 0;
    ZephTimerId id;
    id = loop.runEvery(0.001, [this, held, &fired, &id] {
        ++fired;
        loop.cancel(id);
        loop.cancel(id);
        EXPECT_EQ(held.use_count(), 2); // what runs is not destroyed under its own feet
    });
    QuitAfter(20'000);
    RunUntilQuit(loop);
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ZephTimerQueueTest, RepeatingTimerCancelledByAnotherOfTheRunFiresInItAndIsNotRestarted) {
    // Three of one interval and one time: the middle one cancels the one before and the one after.
    std::vector<ZephTimerId> ids;
    std::vector<int> fired(3, 0);
    const auto held = std::make_shared<int>(0);
    for (size_t i = 0; i < 3; ++i) {
        ids.push_back(loop.runEvery(0.005, [&, i, held] {
            ++fired[i];
            if (i == 1) {
                loop.cancel(ids[0]);
                loop.cancel(ids[2]);
                if (fired[1] == 4) {
                    loop.quit();
                }
            }
        }));
    }
    // Late on purpose, so that all three are due in the first run.
    const ZephTimestamp due = In(10'000);
    loop.queueInLoop([due] {
        while (ZephTimestamp::now() < due) {
        }
    });
    loop.wakeup();
    RunUntilQuit(loop);
    EXPECT_EQ(fired, (std::vector<int>{1, 4, 1}));
    loop.cancel(ids[1]);
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ZephTimerQueueTest, IntervalThatIsNotAboveZeroMakesATimerThatFiresOnce) {
    int fired = 0;
    loop.runEvery(0.0, [&] { ++fired; });
    loop.runEvery(-1.0, [&] { ++fired; });
    QuitAfter(10'000);
    RunUntilQuit(loop);
    EXPECT_EQ(fired, 2);
}

TEST_F(ZephTimerQueueTest, RunEveryFiresFirstAfterOneInterval) {
    const ZephTimestamp start = ZephTimestamp::now();
    loop.runEvery(0.02, [&] {
        EXPECT_FALSE(ZephTimestamp::now() < addTime(start, 0.02));
        loop.quit();
    });
    RunUntilQuit(loop);
}

TEST_F(ZephTimerQueueTest, SetIntervalLeavesThePendingFiringAndHoldsFromTheNext) {
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

TEST_F(ZephTimerQueueTest, SetIntervalLeavesATimerThatFiresOnceAsItIs) {
    int fired = 0;
    const ZephTimerId id = loop.runAt(In(kSoon), [&] { ++fired; });
    id.SetInterval(0.001);
    QuitAfter(20'000);
    RunUntilQuit(loop);
    EXPECT_EQ(fired, 1);
}

TEST_F(ZephTimerQueueTest, IntervalSetToZeroKeepsARepeatingTimerRepeating) {
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

TEST_F(ZephTimerQueueTest, ResetCallbackHoldsForAllLaterFirings) {
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

TEST_F(ZephTimerQueueTest, TimerMayReplaceItsOwnCallbackWhileItRuns) {
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

TEST_F(ZephTimerQueueTest, ChangesToASpentTimerAreHarmless) {
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

TEST_F(ZephTimerQueueTest, StaleSequenceOfAReusedAddressFindsNothing) {
    const ZephTimerId stale = loop.runAt(In(60'000'000), [] {});
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

TEST_F(ZephTimerQueueTest, IdOfAnotherQueueFindsNothing) {
    auto other = std::make_unique<ZephEventLoop>();
    const ZephTimerId foreign = other->runAt(In(60'000'000), [] {});
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

TEST_F(ZephTimerQueueTest, CancelledTimerDoesNotFireAndReleasesWhatItHolds) {
    const auto held = std::make_shared<int>(0);
    const ZephTimerId id = loop.runAt(In(kSoon), [this, held] { log += "wrong"; });
    EXPECT_EQ(held.use_count(), 2);
    loop.cancel(id);
    EXPECT_EQ(held.use_count(), 1);
    QuitAfter(10'000);
    RunUntilQuit(loop);
    EXPECT_EQ(log, "");
}

TEST_F(ZephTimerQueueTest, CancelOfTheEarliestLeavesTheOthersTheirTimes) {
    const ZephTimerId first = loop.runAt(In(kSoon), [this] { log += "wrong "; });
    loop.runAt(In(10'000), [this] {
        log += "second";
        loop.quit();
    });
    RunPending(loop); // armed for the first by now
    loop.cancel(first);
    RunUntilQuit(loop);
    EXPECT_EQ(log, "second");
}

TEST_F(ZephTimerQueueTest, EarlierTimerAddedByACallbackIsNotLate) {
    loop.runAt(In(60'000'000), [this] { log += "wrong"; });
    loop.runAt(In(kSoon), [this] { loop.runAt(In(kSoon), [this] { loop.quit(); }); });
    RunUntilQuit(loop);
    EXPECT_EQ(log, "");
}

TEST_F(ZephTimerQueueTest, EmptyCallbackFiresAndDoesNothing) {
    loop.runAt(In(kSoon), {});
    QuitAfter(5'000);
    RunUntilQuit(loop);
}

TEST_F(ZephTimerQueueTest, TimersOfADestroyedLoopEndWithoutRunning) {
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

TEST_F(ZephTimerQueueTest, WhatADroppedTimerHoldsMayStillAddAndCancelTimers) {
    auto owner = std::make_unique<ZephEventLoop>();
    ZephEventLoop* going = owner.get();
    const ZephTimerId other = going->runAt(In(60'000'000), [] {});
    int drops = 0;
    going->runAt(In(60'000'000), [held = std::shared_ptr<void>(nullptr, [&](void*) {
                                      ++drops;
                                      going->cancel(other);
                                      going->cancel(going->runAfter(1, [] {}));
                                  })] {});
    EXPECT_EQ(drops, 0);
    owner.reset();
    EXPECT_EQ(drops, 1);
}

TEST_F(ZephTimerQueueTest, AnyThreadMayAddChangeAndCancel) {
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

TEST_F(ZephTimerQueueTest, ManyThreadsAddChangeAndCancelWhileTimersFire) {
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

TEST_F(ZephTimerQueueTest, TimersFromOtherThreadsReuseTheirSlots) {
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

TEST(ZephTimer, RestartCountsFromTheRunAndNotFromTheLastTime) {
    ZephTimer repeating([] {}, ZephTimestamp(1'000'000), 0.5, 7);
    EXPECT_TRUE(repeating.Repeat());
    EXPECT_EQ(repeating.GetSequence(), 7);
    repeating.restart(ZephTimestamp(9'000'000));
    EXPECT_EQ(repeating.GetExpiration().microSecondsSinceEpoch(), 9'500'000);
    repeating.SetInterval(2.0);
    EXPECT_EQ(repeating.GetExpiration().microSecondsSinceEpoch(), 9'500'000);
    repeating.restart(ZephTimestamp(9'600'000));
    EXPECT_EQ(repeating.GetExpiration().microSecondsSinceEpoch(), 11'600'000);

    ZephTimer once([] {}, ZephTimestamp(1'000'000), 0.0, 8);
    EXPECT_FALSE(once.Repeat());
    once.SetInterval(1.0);
    once.restart(ZephTimestamp(9'000'000));
    EXPECT_FALSE(once.GetExpiration().valid());
}

} // namespace
