#include "base/ZephTimerQueue.h"

#include "base/TimerTest.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace {

class ZephTimerQueueTest : public TimerTest {
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
};

TEST_F(ZephTimerQueueTest, SequencesCountFromZeroForEachQueue) {
    ZephEventLoop other;
    EXPECT_EQ(loop.runAfter(60, [] {}).GetSeq(), 0);
    EXPECT_EQ(loop.runEvery(60, [] {}).GetSeq(), 1);
    EXPECT_EQ(loop.runAt(In(kNever), [] {}).GetSeq(), 2);
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
    loop.runAt(In(kNever), [this] { log += "wrong"; });
    loop.runAt(In(kSoon), [this] { loop.runAt(In(kSoon), [this] { loop.quit(); }); });
    RunUntilQuit(loop);
    EXPECT_EQ(log, "");
}

TEST_F(ZephTimerQueueTest, EmptyCallbackFiresAndDoesNothing) {
    loop.runAt(In(kSoon), {});
    QuitAfter(5'000);
    RunUntilQuit(loop);
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
