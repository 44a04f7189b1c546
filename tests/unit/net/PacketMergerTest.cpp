#include "net/PacketMerger.h"

#include "base/LoopTest.h"
#include "doubles/MemoryBoard.h"

#include <array>
#include <chrono>
#include <thread>
#include <vector>

namespace {

using Times = std::vector<uint64_t>;

constexpr uint64_t kThreshold = 1'000'000; // ns
constexpr uint64_t kSecond = 1'000'000'000;

std::shared_ptr<Packet> At(uint64_t time, int index) {
    return std::make_shared<Packet>(time, index, std::make_shared<unsigned char[]>(1), 1);
}

class PacketMergerTest : public testing::Test {
  protected:
    PacketMergerTest() { MemoryBoard::Instance().Reset(); }

    // The device time, in nanoseconds, at which packets up to `boundary` are ripe.
    static void SetBoundary(uint64_t boundary, uint64_t threshold = kThreshold) {
        MemoryBoard::Instance().SetCounter((boundary + threshold) / 10);
    }

    std::unique_ptr<PacketMerger> Make(int channels, uint64_t threshold = kThreshold) {
        return std::make_unique<PacketMerger>(
            &loop, channels, threshold,
            [this](const std::shared_ptr<Packet>& packet) { Take(*packet); });
    }

    // Runs the loop until so many packets have come in all, and some rounds of the timer more.
    void RunUntil(size_t count) {
        const ZephTimerId look = loop.runEvery(0.001, [&] {
            if (times.size() >= count) {
                loop.quit();
            }
        });
        RunUntilQuit(loop);
        loop.cancel(look);
        RunSomeRounds();
    }

    // Twenty times the threshold of the tests.
    void RunSomeRounds() {
        loop.runAfter(0.02, [&] { loop.quit(); });
        RunUntilQuit(loop);
    }

    void Take(const Packet& packet) {
        times.push_back(packet.timestamp);
        buckets.push_back(packet.index);
    }

    ZephEventLoop loop;
    Times times;
    std::vector<int> buckets;
};

TEST_F(PacketMergerTest, PacketsOfTwoBucketsLeaveInTheOrderOfTheirTime) {
    SetBoundary(1000);
    const auto merger = Make(2);
    merger->Push(At(5, 0));
    merger->Push(At(3, 1));
    RunUntil(2);
    EXPECT_EQ(times, (Times{3, 5}));
    EXPECT_EQ(buckets, (std::vector<int>{1, 0}));
}

TEST_F(PacketMergerTest, ARunThatFoundEveryBucketRipeLeavesTheRestToTheNextPush) {
    SetBoundary(20);
    const auto merger = Make(1);
    for (const uint64_t time : Times{10, 20, 30}) {
        merger->Push(At(time, 0));
    }
    RunUntil(2);
    EXPECT_EQ(times, (Times{10, 20}));
    SetBoundary(50);
    RunSomeRounds(); // 30 is ripe now, yet no timer runs
    EXPECT_EQ(times, (Times{10, 20}));
    merger->Push(At(1000, 0));
    RunUntil(3);
    EXPECT_EQ(times, (Times{10, 20, 30}));
}

TEST_F(PacketMergerTest, WithASilentChannelTheTimerGoesOn) {
    SetBoundary(20);
    const auto merger = Make(2);
    for (const uint64_t time : Times{10, 30, 50}) {
        merger->Push(At(time, 0));
    }
    RunUntil(1);
    EXPECT_EQ(times, Times{10});
    SetBoundary(30);
    RunUntil(2);
    EXPECT_EQ(times, (Times{10, 30}));
    SetBoundary(50);
    RunUntil(3);
    EXPECT_EQ(times, (Times{10, 30, 50}));
}

TEST_F(PacketMergerTest, ARunComesAThresholdAfterThePushAndAThresholdAfterTheRunBefore) {
    using std::chrono::milliseconds;
    using Clock = std::chrono::steady_clock;
    constexpr uint64_t kWait = 60'000'000; // ns
    SetBoundary(20, kWait);
    const auto merger = Make(2, kWait); // the second channel stays silent
    const auto pushed = Clock::now();
    merger->Push(At(10, 0));
    merger->Push(At(30, 0));
    RunUntil(1);
    const auto first = Clock::now();
    EXPECT_GE(first - pushed, milliseconds(60));
    SetBoundary(30, kWait); // right behind the first run
    RunUntil(2);
    // RunUntil() ends some 20 ms after the packet that it waits for.
    EXPECT_GE(Clock::now() - first, milliseconds(60 - 20));
    EXPECT_EQ(times, (Times{10, 30}));
}

TEST_F(PacketMergerTest, APacketStampedLaterThanNowWaitsForTheBoundaryToPassIt) {
    SetBoundary(0);
    const auto merger = Make(1);
    merger->Push(At(2 * kThreshold, 0)); // now is one threshold
    RunSomeRounds();
    EXPECT_EQ(times, Times{});
    SetBoundary(2 * kThreshold);
    RunUntil(1);
    EXPECT_EQ(times, Times{2 * kThreshold});
}

TEST_F(PacketMergerTest, InTheFirstThresholdOfTheDeviceTimeEverythingIsRipe) {
    MemoryBoard::Instance().SetCounter(1);
    const auto merger = Make(1);
    merger->Push(At(5 * kSecond, 0));
    RunUntil(1);
    EXPECT_EQ(times, Times{5 * kSecond});
}

TEST_F(PacketMergerTest, ANewThresholdLeavesThePendingTimerAndHoldsFromTheNextRun) {
    SetBoundary(2000 * kSecond, 0);
    const auto merger = Make(1, kSecond / 10);
    merger->Push(At(500 * kSecond, 0));
    merger->Push(At(1500 * kSecond, 0)); // ripe for the threshold before, not for the new one
    merger->SetThreshold(1000 * kSecond);
    RunUntil(1); // its deadline is far below the new threshold
    EXPECT_EQ(times, Times{500 * kSecond});
}

TEST_F(PacketMergerTest, WhatArrivesDuringTheCallbackWaitsForTheNextRun) {
    SetBoundary(1000);
    std::unique_ptr<PacketMerger> merger;
    merger = std::make_unique<PacketMerger>(&loop, 1, kThreshold,
                                            [&](const std::shared_ptr<Packet>& packet) {
                                                Take(*packet);
                                                if (packet->timestamp == 5) {
                                                    merger->Push(At(1, 0));
                                                }
                                            });
    merger->Push(At(5, 0));
    merger->Push(At(6, 0));
    RunUntil(3);
    EXPECT_EQ(times, (Times{5, 6, 1}));
}

TEST_F(PacketMergerTest, APacketOfNoBucketIsDropped) {
    SetBoundary(1000);
    const auto merger = Make(2);
    merger->Push(At(1, 2));
    merger->Push(At(1, -1));
    RunSomeRounds();
    EXPECT_EQ(times, Times{});
    merger->Push(At(2, 1));
    RunUntil(1);
    EXPECT_EQ(times, Times{2});
}

TEST_F(PacketMergerTest, WithoutAChannelEveryPacketIsDropped) {
    SetBoundary(1000);
    const auto merger = Make(0);
    merger->Push(At(1, 0));
    RunSomeRounds();
    EXPECT_EQ(times, Times{});
}

TEST_F(PacketMergerTest, WhatIsPendingWhenItGoesIsWithoutEffect) {
    SetBoundary(1000);
    auto merger = Make(1);
    merger->Push(At(1, 0));
    RunPending(loop); // the timer is armed
    merger->Push(At(2, 0));
    merger->SetThreshold(1);
    merger.reset();
    RunSomeRounds();
    EXPECT_EQ(times, Times{});
}

TEST_F(PacketMergerTest, TakesPacketsOfAnyThread) {
    constexpr int kThreads = 4;
    constexpr uint64_t kEach = 500;
    SetBoundary(kSecond);
    const auto merger = Make(kThreads);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&merger, thread] {
            for (uint64_t i = 0; i < kEach; ++i) {
                merger->Push(At(i, thread));
            }
        });
    }
    RunUntil(kThreads * kEach);
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(times.size(), kThreads * kEach);
    std::array<uint64_t, kThreads> next{};
    for (size_t i = 0; i < times.size(); ++i) {
        EXPECT_EQ(times[i], next.at(static_cast<size_t>(buckets[i]))++);
    }
}

} // namespace
