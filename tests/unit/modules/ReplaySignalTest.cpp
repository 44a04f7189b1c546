// When the ready signal asks the host for the next batch: at once when a batch leaves the ring less
// than half full, that is below 256 frames, and once more when a frame that was sent leaves it so.

#include "modules/ReplayFixture.h"

namespace {

class ReplaySignalTest : public ReplayTest {
  protected:
    // Takes nothing more from the device, while this lives.
    class FullLink {
      public:
        explicit FullLink(MemoryUsb& usb) : usb_(usb), out_(usb.Get(MemoryUsb::kWriteOut)) {
            constexpr uint32_t kWriteRing = 0x1000000; // bytes
            usb_.Set(MemoryUsb::kWriteOut, usb_.Get(MemoryUsb::kWriteIn) - kWriteRing);
        }
        ~FullLink() { usb_.Set(MemoryUsb::kWriteOut, out_); }
        FullLink(const FullLink&) = delete;
        FullLink& operator=(const FullLink&) = delete;

      private:
        MemoryUsb& usb_;
        uint32_t out_;
    };

    // While the link is full: the messages in it are nothing to look at.
    static void HaveNoRoomForAWhile() {
        std::this_thread::sleep_for(std::chrono::milliseconds(30)); // two or three tries
    }

    void ExpectSignals(int count) {
        LetPass(20);
        EXPECT_EQ(signals, count);
    }

    // Lets the frame in hand go, until the next one is in hand.
    void NextFrame() {
        const size_t next = gate.Begun() + 1;
        gate.LetOne();
        Await([&] { return gate.Begun() == next; }, "write");
    }
};

TEST_F(ReplaySignalTest, ABatchOf255FramesIsSignalledAtOnce) {
    Take(Numbered(255, 0, kLate));
    EXPECT_EQ(signals, 1);
    ExpectSignals(1);
}

TEST_F(ReplaySignalTest, ABatchOf256FramesIsNot) {
    Take(Numbered(256, 0, kLate));
    ExpectSignals(0);
}

TEST_F(ReplaySignalTest, TheFrameThatLeaves255IsFollowedByTheSignal) {
    HoldWrites();
    auto batch = Numbered(257, 0, kLate);
    batch[0].interval = batch[1].interval = 0;
    Take(batch);
    AwaitHeld();
    NextFrame(); // 256 were left behind the first
    ExpectSignals(0);
    gate.Open();
    Await([&] { return signals > 0; }, "signal");
    ExpectSignals(1);
    EXPECT_EQ(sent, Count(2, 0));
}

TEST_F(ReplaySignalTest, ASignalThatTheFullLinkDropsIsTriedAgainByTheNextFrame) {
    HoldWrites();
    Take(Numbered(3, 0));
    AwaitHeld();
    ExpectSignals(1); // of the batch
    {
        const FullLink full(usb);
        NextFrame();
    }
    ExpectSignals(1);
    NextFrame();
    ExpectSignals(2);
    gate.Open();
    AwaitSent(3);
    ExpectSignals(2);
}

TEST_F(ReplaySignalTest, ASignalThatTheFullLinkDropsIsTriedAgainWhenNoFrameIsLeft) {
    HoldWrites();
    Take(Numbered(3, 0));
    AwaitHeld();
    ExpectSignals(1); // of the batch
    {
        const FullLink full(usb);
        gate.Open();
        HaveNoRoomForAWhile();
    }
    Await([&] { return signals == 2; }, "signal");
    ExpectSignals(2);
    ExpectAReplayWorks();
}

TEST_F(ReplaySignalTest, ADroppedSignalIsTriedAgainBehindAPause) {
    HoldWrites();
    Take(Numbered(1, 0));
    AwaitHeld();
    ExpectSignals(1);
    Command(kPause);
    {
        const FullLink full(usb);
        gate.Open();
        HaveNoRoomForAWhile();
    }
    ExpectSignals(1);
    Command(kContinue);
    Await([&] { return signals == 2; }, "signal");
}

// The host takes a signal behind the confirmation of a batch for one that knows of it.
TEST_F(ReplaySignalTest, ABatchIsTakenWhenASignalOnItsWayIsOut) {
    std::atomic<bool> hold{false}, held{false};
    usb.doorbell = [&] {
        while (hold) {
            held = true;
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        return 0;
    };
    HoldWrites();
    auto batch = Numbered(257, 0, kLate);
    batch[0].interval = batch[1].interval = 0;
    Take(batch);
    AwaitHeld();
    NextFrame();
    hold = true;
    gate.Open();
    Await([&] { return held.load(); }, "signal");
    std::atomic<bool> taken{false};
    std::thread host([&] {
        Download(Numbered(128, 300, kLate));
        taken = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(taken);
    hold = false;
    host.join();
    EXPECT_TRUE(taken);
    Command(kCancel); // nobody rings the doorbell behind it
    usb.doorbell = nullptr;
}

TEST_F(ReplaySignalTest, ItIsSentBehindAFinishToo) {
    HoldWrites();
    Take(Numbered(300, 0));
    AwaitHeld();
    Command(kFinish);
    ExpectSignals(0);
    gate.Open();
    AwaitEnd();
    EXPECT_EQ(sent, Count(300, 0));
    ExpectSignals(1);
}

TEST_F(ReplaySignalTest, ARefusedBatchLeavesItOutstanding) {
    HoldWrites();
    Take(Numbered(3, 0));
    AwaitHeld();
    NextFrame();
    ExpectSignals(2);
    Bytes request = Batch(Numbered(1, 3));
    request[2] = 2;
    ExpectRefused(request, kErrorLength);
    gate.Open();
    AwaitSent(4);
    ExpectSignals(2);
    Take(Numbered(1, 4));
    AwaitSent(5);
    ExpectSignals(4); // of the batch, and of its frame
}

} // namespace
