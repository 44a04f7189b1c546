// A replay that goes on after a pause is like one that never paused.

#include "modules/ReplayFixture.h"

namespace {

class ReplayContinueTest : public ReplayTest {
  protected:
    // `frames`, paused behind the first; the timer has expired since.
    void PauseBehindTheFirst(const std::vector<HostFrame>& frames) {
        HoldTheFirst(frames);
        Command(kPause);
        gate.Open();
        ExpireAndAwait();
    }

    // A replay of 30 frames that has been continued on its way.
    void GoOn() {
        PauseBehindTheFirst(Numbered(30, 0x100, 5000));
        Command(kContinue);
    }
};

TEST_F(ReplayContinueTest, TheWaitingFrameGetsItsFullInterval) {
    const TimerSettings settings;
    auto batch = Numbered(2, 0x100);
    batch[1].interval = 50000;
    PauseBehindTheFirst(batch);
    const auto continued = Clock::now();
    Command(kContinue);
    AwaitSent(2);
    EXPECT_GE(Clock::now() - continued, std::chrono::microseconds(49980));
    // 1 is the expiry in the pause.
    EXPECT_EQ(settings.Taken(), (std::vector<int64_t>{10, 49980000, 1, 49980000}));
}

TEST_F(ReplayContinueTest, ABatchFollows) {
    GoOn();
    Take(Numbered(30, 0x11E));
    AwaitSent(60);
    EXPECT_EQ(sent, Count(60, 0x100));
}

TEST_F(ReplayContinueTest, ABatchAfterTheRingRanEmptyIsSent) {
    GoOn();
    AwaitSent(30);
    Take(Numbered(10, 0x11E));
    AwaitSent(40);
    EXPECT_EQ(sent, Count(40, 0x100));
}

TEST_F(ReplayContinueTest, TheHostIsAskedForMore) {
    Take(Numbered(300, 0x100, 100));
    Command(kPause);
    Command(kContinue);
    AwaitSent(300);
    LetPass(10);
    EXPECT_EQ(signals, 1);
}

TEST_F(ReplayContinueTest, AContinueAgainLosesNothing) {
    GoOn();
    Command(kContinue);
    AwaitSent(30);
    EXPECT_EQ(sent, Count(30, 0x100));
}

TEST_F(ReplayContinueTest, AContinueOfAnEmptyRingSendsNothing) {
    Take(Numbered(2, 0x100));
    AwaitSent(2);
    Command(kContinue);
    LetPass(20);
    EXPECT_EQ(sent, Count(2, 0x100));
    Take(Numbered(2, 0x102));
    AwaitSent(4);
}

TEST_F(ReplayContinueTest, APauseHoldsItAgain) {
    GoOn();
    Command(kPause);
    ExpireAndAwait();
    Listen();
    const size_t held = sent.size();
    LetPass(30);
    EXPECT_EQ(sent.size(), held);
    Command(kContinue);
    AwaitSent(30);
    EXPECT_EQ(sent, Count(30, 0x100));
}

TEST_F(ReplayContinueTest, AFinishSendsTheRestAndEnds) {
    GoOn();
    Command(kFinish);
    AwaitEnd();
    EXPECT_EQ(sent, Count(30, 0x100));
}

TEST_F(ReplayContinueTest, AContinueBehindAFinishStillEnds) {
    GoOn();
    Command(kFinish);
    Command(kContinue);
    AwaitEnd();
    EXPECT_EQ(sent, Count(30, 0x100));
}

TEST_F(ReplayContinueTest, ACancelDropsTheRest) {
    GoOn();
    Command(kCancel);
    Listen();
    const size_t held = sent.size();
    LetPass(30);
    EXPECT_EQ(sent.size(), held);
    ExpectAReplayWorks();
}

TEST_F(ReplayContinueTest, UnknownServicesAreRefusedAndChangeNothing) {
    GoOn();
    ExpectRefused({18, 2}, kWrongSid);
    AwaitSent(30);
}

} // namespace
