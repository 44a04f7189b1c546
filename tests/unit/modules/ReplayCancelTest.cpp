// A replay that has been cancelled is over when the host has its answer.

#include "modules/ReplayFixture.h"

namespace {

class ReplayCancelTest : public ReplayTest {
  protected:
    // 400 frames that are not all sent before a test has ended.
    static std::vector<HostFrame> Long() {
        auto batch = Numbered(400, 0x100, 500);
        batch[200].interval = kLate;
        return batch;
    }

    // A replay that was cancelled on its way.
    void CancelOnTheWay() {
        Take(Long());
        AwaitSent(5);
        Command(kCancel);
        Listen();
        sent.clear();
    }

    void ExpectNothingIsSent() {
        LetPass(20);
        EXPECT_TRUE(sent.empty());
        EXPECT_EQ(ends, 0);
    }
};

TEST_F(ReplayCancelTest, TheAnswerWaitsForTheFrameInHandAndNoFrameFollowsIt) {
    HoldTheFirst(Long());
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
    Take(Long());
    Command(kFinish);
    Command(kCancel);
    Listen();
    ExpectAReplayWorks();
    LetPass(150);
    EXPECT_EQ(ends, 0);
}

TEST_F(ReplayCancelTest, InTheClosingWaitItTakesTheEndMessageAlong) {
    {
        TimerSettings settings;
        settings.Replace(kClosingWait, kNoEnd);
        Take(Numbered(2, 0x100));
        Command(kFinish);
        AwaitClosingWait(settings);
        Command(kCancel);
    }
    EXPECT_EQ(OpenedInAll(), 0U);
    Listen();
    ExpectAReplayWorks();
    LetPass(150);
    EXPECT_EQ(ends, 0);
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
