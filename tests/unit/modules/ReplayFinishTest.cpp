// A replay whose end the host has announced: the rest is sent, then comes the closing wait of
// 100 ms, then the end message.

#include "modules/ReplayFixture.h"
#include "modules/TimerSettings.h"

#include <sys/timerfd.h>

namespace {

class ReplayFinishTest : public ReplayTest {
  protected:
    void FinishOnTheWay() {
        Take(Numbered(20, 0x100, 2000));
        AwaitSent(1);
        Command(kFinish);
    }

    // In the closing wait, with nothing left to send.
    void FinishAllSent() {
        Take(Numbered(5, 0x100));
        AwaitSent(5);
        Command(kFinish);
        LetPass(5);
        ASSERT_EQ(ends, 0);
    }
};

TEST_F(ReplayFinishTest, TheEndMessageIs18And128And3) {
    FinishOnTheWay();
    AwaitSent(20);
    Listen();
    const auto deadline = Clock::now() + kDeadline;
    std::vector<Bytes> last;
    while (last.empty() && Clock::now() < deadline) {
        last = Answers();
    }
    EXPECT_EQ(last, (std::vector<Bytes>{{0, 3, 0, 0, 0, 18, 128, 3, 0, 0, 0, 0, 0, 0, 0, 0}}));
}

TEST_F(ReplayFinishTest, TheRestIsSentFirst) {
    FinishOnTheWay();
    AwaitEnd();
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayFinishTest, TheEndMessageComes100MsAfterTheLastFrame) {
    Take(Numbered(5, 0x100, 20000));
    const auto start = Clock::now();
    Command(kFinish);
    AwaitEnd();
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(190));
}

TEST_F(ReplayFinishTest, OfAnEmptyRingTheEndMessageComesAfter100Ms) {
    Take(Numbered(5, 0x100));
    AwaitSent(5);
    LetPass(5);
    const auto start = Clock::now();
    Command(kFinish);
    AwaitEnd();
    EXPECT_GE(Clock::now() - start, std::chrono::microseconds(99980));
    LetPass(120);
    EXPECT_EQ(ends, 1);
}

TEST_F(ReplayFinishTest, HoweverTheFinishMeetsTheLastFrameTheEndComesOnce) {
    for (int i = 1; i <= 12; ++i) {
        Take(Numbered(1, 0x100, 300));
        std::this_thread::sleep_for(std::chrono::microseconds(40 * i));
        Command(kFinish);
        AwaitEnd(i);
    }
    LetPass(120);
    EXPECT_EQ(ends, 12);
    EXPECT_EQ(sent, Ids(12, 0x100));
}

TEST_F(ReplayFinishTest, AFinishAgainDoesNotCutTheWaitShort) {
    FinishAllSent();
    const auto start = Clock::now();
    Command(kFinish);
    Command(kFinish);
    AwaitEnd();
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
    LetPass(120);
    EXPECT_EQ(ends, 1);
}

TEST_F(ReplayFinishTest, ABatchInTheClosingWaitIsSentAndEndsTheReplay) {
    FinishAllSent();
    Take(Numbered(10, 0x105, 1000));
    AwaitSent(15);
    AwaitEnd();
    EXPECT_EQ(sent, Count(15, 0x100));
    ExpectAReplayWorks();
    LetPass(150);
    EXPECT_EQ(ends, 1);
}

TEST_F(ReplayFinishTest, ABatchInTheClosingWaitIsFollowedByNoSecondOne) {
    const TimerSettings settings;
    Take(Numbered(1, 0x100));
    Command(kFinish);
    Await([&] { return settings.Count() > 0 && settings.Taken().back() == 99980000; },
          "closing wait");
    const auto timers = Opened("timerfd");
    ASSERT_EQ(timers.size(), 1U);
    // Longer than it is, so that the batch comes in it however slow this machine is.
    const itimerspec later{{0, 0}, {60, 0}};
    ASSERT_EQ(timerfd_settime(timers[0], 0, &later, nullptr), 0);
    const size_t before = settings.Count();
    Take(Numbered(1, 0x101, 500));
    AwaitEnd();
    EXPECT_EQ(sent, Count(2, 0x100));
    auto taken = settings.Taken();
    taken.erase(taken.begin(), taken.begin() + static_cast<std::ptrdiff_t>(before));
    // The frame, the wait behind the last one, and the end at once.
    EXPECT_EQ(taken, (std::vector<int64_t>{480000, 980000, 10}));
}

TEST_F(ReplayFinishTest, ABatchBehindAFinishIsSentBeforeTheEnd) {
    FinishOnTheWay();
    Take(Numbered(20, 0x114, 100));
    AwaitEnd();
    EXPECT_EQ(sent, Count(40, 0x100));
}

TEST_F(ReplayFinishTest, NoBatchIsLostAtTheMomentOfTheEnd) {
    uint32_t id = 0;
    for (int i = 0; i < 16; ++i) {
        Take(Numbered(1, id++));
        AwaitSent(id);
        const auto finished = Clock::now();
        Command(kFinish);
        std::this_thread::sleep_until(finished + std::chrono::microseconds(99900 + 25 * i));
        Take(Numbered(3, id, 10));
        id += 3;
        AwaitSent(id);
        Command(kCancel);
    }
    EXPECT_EQ(sent, Count(id, 0));
}

TEST_F(ReplayFinishTest, APauseHoldsTheRest) {
    FinishOnTheWay();
    Command(kPause);
    LetPass(10);
    const size_t held = sent.size();
    ASSERT_LT(held, 20U);
    LetPass(150);
    EXPECT_EQ(sent.size(), held);
    EXPECT_EQ(ends, 0);
    Command(kContinue);
    AwaitEnd();
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayFinishTest, AContinueInTheClosingWaitStillEnds) {
    FinishAllSent();
    Command(kContinue);
    AwaitEnd();
    LetPass(120);
    EXPECT_EQ(ends, 1);
}

TEST_F(ReplayFinishTest, ACancelDropsTheRestAndTheEndMessage) {
    FinishOnTheWay();
    Command(kCancel);
    Listen();
    const size_t held = sent.size();
    LetPass(150);
    EXPECT_EQ(sent.size(), held);
    EXPECT_EQ(ends, 0);
    ExpectAReplayWorks();
}

TEST_F(ReplayFinishTest, TheNextReplayIsANewOne) {
    for (int i = 1; i <= 3; ++i) {
        FinishOnTheWay();
        AwaitEnd(i);
        EXPECT_EQ(sent, Count(20, 0x100));
        sent.clear();
    }
    ExpectAReplayWorks();
    LetPass(150);
    EXPECT_EQ(ends, 3);
}

TEST_F(ReplayFinishTest, CommandsBehindTheEndDoNotReachTheNextReplay) {
    for (const uint8_t sid : Bytes{kPause, kContinue, kCancel}) {
        FinishOnTheWay();
        AwaitEnd();
        ends = 0;
        Command(sid);
        EXPECT_EQ(OpenedInAll(), 0U);
        ExpectAReplayWorks();
        LetPass(120);
        EXPECT_EQ(ends, 0);
        Command(kCancel);
        sent.clear();
    }
}

TEST_F(ReplayFinishTest, UnknownServicesAreRefusedAndChangeNothing) {
    FinishOnTheWay();
    ExpectRefused({18, 2}, kWrongSid);
    AwaitEnd();
    EXPECT_EQ(sent, Count(20, 0x100));
}

} // namespace
