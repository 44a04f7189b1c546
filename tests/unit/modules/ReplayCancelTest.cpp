// A replay that has been cancelled is over when the host has its answer.

#include "modules/ReplayFixture.h"

namespace {

class ReplayCancelTest : public ReplayTest {
  protected:
    // A replay of 400 frames that was cancelled on its way.
    void CancelOnTheWay() {
        Take(Numbered(400, 0x100, 500));
        AwaitSent(5);
        Command(kCancel);
        ASSERT_LT(sent.size(), 400U);
        sent.clear();
    }

    void ExpectNothingIsSent() {
        LetPass(20);
        EXPECT_TRUE(sent.empty());
        EXPECT_EQ(ends, 0);
    }
};

TEST_F(ReplayCancelTest, NoFrameFollowsTheAnswer) {
    for (int i = 0; i < 30; ++i) {
        Take(Numbered(511, 0));
        LetPass(i % 3);
        Send({18, kCancel});
        Listen(); // takes the answer first, and then frames that went before it
        sent.clear();
        LetPass(1);
        ASSERT_TRUE(sent.empty()) << "round " << i;
    }
}

TEST_F(ReplayCancelTest, TheThreadAndItsDescriptorsAreGone) {
    CancelOnTheWay();
    EXPECT_EQ(OpenedInAll(), 0U);
    ExpectNothingIsSent();
}

TEST_F(ReplayCancelTest, ABatchStartsAfresh) {
    CancelOnTheWay();
    Take(Numbered(10, 0x500));
    AwaitSent(10);
    EXPECT_EQ(sent, Count(10, 0x500));
}

TEST_F(ReplayCancelTest, ACancelAgainIsAnswered) {
    CancelOnTheWay();
    Command(kCancel);
    ExpectNothingIsSent();
    ExpectAReplayWorks();
}

TEST_F(ReplayCancelTest, AContinueSendsNothing) {
    CancelOnTheWay();
    Command(kContinue);
    ExpectNothingIsSent();
    ExpectAReplayWorks();
}

TEST_F(ReplayCancelTest, APauseDoesNotHoldTheNextReplay) {
    CancelOnTheWay();
    Command(kPause);
    ExpectAReplayWorks();
}

TEST_F(ReplayCancelTest, AFinishEndsTheNextReplay) {
    CancelOnTheWay();
    Command(kFinish);
    LetPass(120);
    EXPECT_EQ(ends, 0);
    ExpectAReplayWorks();
    AwaitEnd();
}

TEST_F(ReplayCancelTest, AFinishBeforeItIsForgotten) {
    Take(Numbered(100, 0x100, 1000));
    Command(kFinish);
    Command(kCancel);
    Listen();
    ExpectAReplayWorks();
    LetPass(150);
    EXPECT_EQ(ends, 0);
}

TEST_F(ReplayCancelTest, InTheClosingWaitItTakesTheEndMessageAlong) {
    Take(Numbered(2, 0x100));
    Command(kFinish);
    AwaitSent(2);
    LetPass(10);
    Command(kCancel);
    LetPass(150);
    EXPECT_EQ(ends, 0);
    ExpectAReplayWorks();
}

TEST_F(ReplayCancelTest, AfterTheEndItIsAnswered) {
    Take(Numbered(2, 0x100));
    Command(kFinish);
    AwaitEnd();
    Command(kCancel);
    EXPECT_EQ(OpenedInAll(), 0U);
    ExpectAReplayWorks();
}

TEST_F(ReplayCancelTest, OfAThreadThatWaitsForDataItIsAnswered) {
    Take(Numbered(2, 0x100));
    AwaitSent(2);
    Command(kCancel);
    ExpectAReplayWorks();
}

TEST_F(ReplayCancelTest, UnknownServicesAreRefused) {
    CancelOnTheWay();
    ExpectRefused({18, 2}, kWrongSid);
}

} // namespace
