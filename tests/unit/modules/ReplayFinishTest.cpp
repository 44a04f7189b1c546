// A replay whose end the host has announced: the rest is sent, then comes the closing wait of
// 100 ms, then the end message.

#include "modules/ReplayFixture.h"

namespace {

class ReplayFinishTest : public ReplayTest {
  protected:
    // 20 frames, finished while the first is in hand, where `meanwhile` comes too.
    void FinishOnTheWay(const std::function<void()>& meanwhile = [] {}) {
        HoldTheFirst(Numbered(20, 0x100, 2000));
        Command(kFinish);
        meanwhile();
        gate.Open();
    }

    // In the closing wait, with nothing left to send. The wait lasts until Expire().
    void FinishAllSent() {
        settings.Replace(kClosingWait, kNoEnd);
        Take(Numbered(5, 0x100));
        AwaitSent(5);
        Command(kFinish);
        AwaitClosingWait(settings);
    }

    TimerSettings settings;
};

TEST_F(ReplayFinishTest, TheEndMessageIs18And128And3) {
    FinishOnTheWay();
    AwaitEnd(); // told by all its bytes
    EXPECT_EQ(kEnd, (Bytes{0, 3, 0, 0, 0, 18, 128, 3, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ReplayFinishTest, TheRestIsSentFirst) {
    FinishOnTheWay();
    AwaitEnd();
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayFinishTest, TheEndMessageComes100MsAfterTheLastFrame) {
    const auto start = Clock::now();
    Take(Numbered(5, 0x100, 20000));
    Command(kFinish);
    AwaitEnd();
    // Five intervals and the wait, each short by the correction.
    EXPECT_GE(Clock::now() - start, std::chrono::microseconds(5 * 19980 + 99980));
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
    Take(Numbered(5, 0x100));
    AwaitSent(5);
    const auto start = Clock::now();
    for (int i = 0; i < 3; ++i) {
        Command(kFinish);
        LetPass(5);
    }
    AwaitEnd();
    EXPECT_GE(Clock::now() - start, std::chrono::microseconds(99980));
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
    FinishAllSent();
    const size_t before = settings.Count();
    Take(Numbered(1, 0x105, 500));
    AwaitEnd();
    EXPECT_EQ(sent, Count(6, 0x100));
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

TEST_F(ReplayFinishTest, APauseHoldsTheRest) {
    FinishOnTheWay([this] { Command(kPause); });
    ExpireAndAwait();
    LetPass(150);
    EXPECT_EQ(sent, Count(1, 0x100));
    EXPECT_EQ(ends, 0);
    Command(kContinue);
    AwaitEnd();
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayFinishTest, AContinueInTheClosingWaitStillEnds) {
    FinishAllSent();
    Command(kContinue);
    Expire();
    AwaitEnd();
    LetPass(120);
    EXPECT_EQ(ends, 1);
}

TEST_F(ReplayFinishTest, ACancelDropsTheRestAndTheEndMessage) {
    auto batch = Numbered(20, 0x100);
    batch[1].interval = kLate;
    HoldTheFirst(batch);
    Command(kFinish);
    gate.Open();
    Command(kCancel);
    LetPass(150);
    EXPECT_EQ(sent, Count(1, 0x100));
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
