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

TEST_F(ReplayCancelTest, TheAnswerWaitsForTheFrameInHandAndNoFrameFollowsIt) {
    HoldWrites();
    Take(Numbered(400, 0x100, 1000));
    AwaitHeld();
    const uint32_t requests = usb.Get(MemoryUsb::kReadOut);
    std::thread host([this] { Send({18, kCancel}); });
    Await([&] { return usb.Get(MemoryUsb::kReadOut) != requests; }, "look at the request");
    LetPass(30);
    EXPECT_TRUE(replies.empty());
    gate.Open();
    host.join();
    const size_t written = gate.Begun();
    ExpectShort(Reply(), 18, kCancel);
    LetPass(20);
    EXPECT_EQ(gate.Begun(), written);
    EXPECT_EQ(sent, Count(written, 0x100));
    EXPECT_LT(written, 400U);
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
