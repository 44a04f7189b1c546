// A replay that pauses: its frames stay, and what each request makes of that.

#include "modules/ReplayFixture.h"

namespace {

class ReplayPauseTest : public ReplayTest {
  protected:
    // 20 frames, paused behind the first; the timer has expired since.
    void PauseOnTheWay() {
        HoldTheFirst(Numbered(20, 0x100, 5000));
        Command(kPause);
        gate.Open();
        ExpireAndAwait();
    }

    // Nothing but the first frame.
    void ExpectNothingIsSent() {
        LetPass(30);
        EXPECT_EQ(sent, Count(1, 0x100));
    }
};

TEST_F(ReplayPauseTest, NothingIsSent) {
    PauseOnTheWay();
    ExpectNothingIsSent();
}

TEST_F(ReplayPauseTest, ContinueSendsEveryFrame) {
    PauseOnTheWay();
    Command(kContinue);
    AwaitSent(20);
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayPauseTest, APauseAndAContinueLoseNothingHoweverOften) {
    Take(Numbered(100, 0x100, 300));
    for (int i = 0; i < 50; ++i) {
        Command(kPause);
        if (i % 3 == 0) {
            LetPass(1);
        }
        Command(kContinue);
    }
    AwaitSent(100);
    LetPass(10);
    EXPECT_EQ(sent, Count(100, 0x100));
}

TEST_F(ReplayPauseTest, APauseAgainChangesNothing) {
    PauseOnTheWay();
    Command(kPause);
    ExpectNothingIsSent();
    Command(kContinue);
    AwaitSent(20);
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayPauseTest, ABatchWaitsWithTheRestForAContinue) {
    PauseOnTheWay();
    Take(Numbered(5, 0x114));
    ExpectNothingIsSent();
    Command(kContinue);
    AwaitSent(25);
    EXPECT_EQ(sent, Count(25, 0x100));
}

TEST_F(ReplayPauseTest, ABatchBeforeTheTimerExpiresTakesThePauseBack) {
    HoldTheFirst(Numbered(2, 0x100, 1000)); // which takes no expiry until its frame is written
    Command(kPause);
    Take(Numbered(2, 0x102));
    gate.Open();
    AwaitSent(4);
    EXPECT_EQ(sent, Count(4, 0x100));
}

TEST_F(ReplayPauseTest, ABatchForAnEmptyRingIsSent) {
    Take(Numbered(2, 0x100));
    AwaitSent(2);
    Command(kPause);
    Take(Numbered(2, 0x102));
    AwaitSent(4);
    EXPECT_EQ(sent, Count(4, 0x100));
}

// The last frame is in hand as the pause comes, and done before the batch, while it is being taken
// or behind it.
TEST_F(ReplayPauseTest, ABatchForARingThatRunsEmptyInThePauseIsSentHoweverTheyMeet) {
    HoldWrites();
    const auto inBatch = std::make_shared<std::atomic<bool>>(false);
    usb.doorbell = [this, inBatch] { // the batch's ready signal: its frame is queued already
        if (*inBatch) {
            gate.Open();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return 0;
    };
    for (uint32_t i = 0; i < 300; ++i) {
        gate.Close();
        Take(Numbered(1, 2 * i));
        AwaitHeld();
        Command(kPause);
        if (i % 3 == 0) {
            gate.Open();
        }
        *inBatch = i % 3 == 1;
        Take(Numbered(1, 2 * i + 1));
        *inBatch = false;
        gate.Open();
        AwaitSent(2 * i + 2);
        ASSERT_EQ(sent, Count(2 * i + 2, 0)) << "round " << i;
    }
}

TEST_F(ReplayPauseTest, AFinishWaitsWithTheRestForAContinue) {
    PauseOnTheWay();
    Command(kFinish);
    ExpectNothingIsSent();
    Command(kContinue);
    AwaitEnd();
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayPauseTest, AFinishOfAnEmptyRingEndsTheReplay) {
    Take(Numbered(2, 0x100));
    AwaitSent(2);
    Command(kPause);
    Command(kFinish);
    AwaitEnd();
}

TEST_F(ReplayPauseTest, APauseInTheClosingWaitHoldsTheEndUntilAContinue) {
    TimerSettings settings;
    settings.Replace(kClosingWait, kNoEnd);
    Take(Numbered(2, 0x100));
    Command(kFinish);
    AwaitClosingWait(settings);
    Command(kPause);
    ExpireAndAwait();
    LetPass(20);
    EXPECT_EQ(ends, 0);
    Command(kContinue);
    AwaitEnd();
    LetPass(120);
    EXPECT_EQ(ends, 1);
}

TEST_F(ReplayPauseTest, ACancelDropsTheRest) {
    PauseOnTheWay();
    Command(kCancel);
    ExpectNothingIsSent();
    EXPECT_EQ(OpenedInAll(), 0U);
    ExpectAReplayWorks();
}

TEST_F(ReplayPauseTest, UnknownServicesAreRefusedAndChangeNothing) {
    PauseOnTheWay();
    ExpectRefused({18, 2}, kWrongSid);
    ExpectNothingIsSent();
    Command(kContinue);
    AwaitSent(20);
}

} // namespace
