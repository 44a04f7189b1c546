// Requests while nothing is being played: what a batch must look like, and what it becomes.

#include "modules/ReplayFixture.h"

#include <sys/resource.h>

namespace {

class ReplayIdleTest : public ReplayTest {
  protected:
    // The frame that reaches the socket of channel 0.
    Bytes OnSocket(const HostFrame& frame) {
        Take({frame});
        AwaitSent(1);
        return sentFrames.size() == 1 ? sentFrames.front() : Bytes{};
    }

    // The first setting of the timer for a frame behind `interval`, in nanoseconds.
    int64_t FirstSetting(uint32_t interval) {
        const TimerSettings settings;
        Download({After(interval)});
        Await([&] { return settings.Count() > 0; }, "setting");
        return settings.Taken().at(0);
    }

    // The highest descriptor number that is left to the process, while this lives.
    class FewDescriptors {
      public:
        explicit FewDescriptors(int more) {
            getrlimit(RLIMIT_NOFILE, &before_);
            rlimit few = before_;
            const int lowest = dup(0);
            close(lowest);
            few.rlim_cur = static_cast<rlim_t>(lowest + more);
            setrlimit(RLIMIT_NOFILE, &few);
        }
        ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
        FewDescriptors(const FewDescriptors&) = delete;
        FewDescriptors& operator=(const FewDescriptors&) = delete;

      private:
        rlimit before_{};
    };
};

TEST_F(ReplayIdleTest, AClassicFrameReachesTheSocketWithItsMark) {
    EXPECT_EQ(OnSocket({0, 0x123, 3, {0xAA, 0xBB, 0xCC}}),
              (Bytes{0x23, 1, 0, 0, 3, 0, 1, 0, 0xAA, 0xBB, 0xCC, 0, 0, 0, 0, 0}));
}

TEST_F(ReplayIdleTest, AStandardIdentifierHas11Bits) {
    EXPECT_EQ(OnSocket({0, 0x7FFFFFFF, 0, {}}),
              (Bytes{0xFF, 7, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ReplayIdleTest, AnExtendedIdentifierHas29BitsAndKeepsItsFlag) {
    EXPECT_EQ(OnSocket({0, 0xFFFFFFFE, 0, {}}),
              (Bytes{0xFE, 0xFF, 0xFF, 0x9F, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ReplayIdleTest, Bit5OfAClassicFrameMakesItARemoteFrame) {
    EXPECT_EQ(OnSocket({0, 0x123, 0x22, {1, 2}}),
              (Bytes{0x23, 1, 0, 0x40, 2, 0, 1, 0, 1, 2, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ReplayIdleTest, Bits4And7OfTheFlagsMeanNothing) {
    EXPECT_EQ(OnSocket({0, 0x123, 0x91, {7}}),
              (Bytes{0x23, 1, 0, 0, 1, 0, 1, 0, 7, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ReplayIdleTest, AClassicFrameWithDlc9ReachesTheSocketWithLength12And8Bytes) {
    EXPECT_EQ(OnSocket({0, 0x123, 9, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}),
              (Bytes{0x23, 1, 0, 0, 12, 0, 1, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(ReplayIdleTest, AnFdFrameReachesTheSocketWithItsBitRateSwitch) {
    Bytes expected{0x23, 1, 0, 0, 12, 1, 1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    expected.resize(72);
    EXPECT_EQ(OnSocket({0, 0x123, 0x69, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}), expected);
}

TEST_F(ReplayIdleTest, AnFdFrameOf64BytesWithoutTheSwitch) {
    Bytes expected{0x45, 3, 2, 0x81, 64, 0, 1, 0};
    expected.resize(72, 0x5A);
    EXPECT_EQ(OnSocket({0, 0x81020345, 0x4F, Bytes(64, 0x5A)}), expected);
}

TEST_F(ReplayIdleTest, TheReadySignalIsTheGroupAndTwo) {
    Download(Numbered(300, 0, kLate)); // more than half a ring: no signal yet
    Download(Numbered(211, 0, kLate));
    EXPECT_TRUE(Answers().empty());
    Command(kCancel);
    Download({After(kLate)});
    EXPECT_EQ(Answers(), (std::vector<Bytes>{{0, 2, 0, 0, 0, 18, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}}));
}

TEST_F(ReplayIdleTest, AnIntervalOf0ExpiresAtOnce) {
    EXPECT_EQ(FirstSetting(0), 10);
}

TEST_F(ReplayIdleTest, IntervalsUpTo100AreNotReduced) {
    EXPECT_EQ(FirstSetting(1), 1000);
    Send({18, kCancel});
    EXPECT_EQ(FirstSetting(100), 100000);
}

TEST_F(ReplayIdleTest, LongerIntervalsAreReducedBy20) {
    EXPECT_EQ(FirstSetting(101), 81000);
    Send({18, kCancel});
    EXPECT_EQ(FirstSetting(1000000), 999980000);
    Send({18, kCancel});
    EXPECT_EQ(FirstSetting(1000020), 1000000000);
    Send({18, kCancel});
    EXPECT_EQ(FirstSetting(0x7FFFFFFF), INT64_C(2147483627000));
}

TEST_F(ReplayIdleTest, ABatchIsSentInItsOrder) {
    Take(Numbered(500, 0x100));
    AwaitSent(500);
    EXPECT_EQ(sent, Count(500, 0x100));
}

TEST_F(ReplayIdleTest, TheChannelOfEachFrameIsUsedAsItStands) {
    auto batch = Numbered(6, 0x100);
    for (uint8_t channel = 0; channel < 6; ++channel) {
        batch[channel].channel = static_cast<uint8_t>(5 - channel);
    }
    Take(batch);
    AwaitSent(1);
    for (uint8_t channel = 1; channel < 6; ++channel) {
        const auto others = channels.at(channel)->Frames();
        ASSERT_EQ(others.size(), 1U) << "channel " << int{channel};
        EXPECT_EQ(others[0][0], 5 - channel);
    }
}

TEST_F(ReplayIdleTest, ASmallBatchIsAnsweredByASignalAndAnotherWithItsFirstFrame) {
    Take(Numbered(3, 0, kLate));
    EXPECT_EQ(signals, 1);
    Command(kCancel);
    signals = 0;
    Take(Numbered(3, 0));
    AwaitSent(3);
    Await([&] { return signals == 2; }, "signal");
    LetPass(20);
    EXPECT_EQ(signals, 2);
    EXPECT_EQ(ends, 0);
}

TEST_F(ReplayIdleTest, ABatchOf11BytesOrLessIsRefused) {
    for (size_t length = 2; length <= 11; ++length) {
        Bytes request = Batch({After(0)});
        request.resize(length);
        ExpectRefused(request, kErrorLength);
    }
}

TEST_F(ReplayIdleTest, ABatchOf12BytesWithoutAFrameIsTaken) {
    Send({18, kDownload, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7});
    Listen();
    EXPECT_EQ(signals, 1);
    EXPECT_TRUE(replies.empty());
    Take(Numbered(2, 0x55));
    AwaitSent(2);
    EXPECT_EQ(sent, Count(2, 0x55));
}

TEST_F(ReplayIdleTest, AFirstChannelBeyondTheLastIsRefused) {
    for (const uint8_t channel : Bytes{6, 8, 255}) {
        auto batch = Numbered(2, 0);
        batch[0].channel = channel;
        ExpectRefused(Batch(batch), kOutOfRange);
    }
}

TEST_F(ReplayIdleTest, AClosedChannelIsAWrongSequence) {
    Drivers::CanManage::statusMask_ = 0x3E;
    ExpectRefused(Batch(Numbered(2, 0)), kWrongSequence);
}

TEST_F(ReplayIdleTest, AListeningChannelIsAWrongSequence) {
    Drivers::CanManage::ListenstatusMask_ = 1;
    ExpectRefused(Batch(Numbered(2, 0)), kWrongSequence);
    LetPass(20);
    EXPECT_TRUE(sent.empty());
}

TEST_F(ReplayIdleTest, ABatchMayGoOnWithAClosedAndAListeningChannel) {
    Drivers::CanManage::statusMask_ = 0x05;
    Drivers::CanManage::ListenstatusMask_ = 0x04;
    auto batch = Numbered(4, 0x100);
    batch[1].channel = 1; // closed
    batch[2].channel = 2; // listens
    Take(batch);
    AwaitSent(2);
    EXPECT_EQ(sent, (Ids{0x100, 0x103}));
    EXPECT_EQ(channels[1]->Frames().size(), 1U);
    EXPECT_EQ(channels[2]->Frames().size(), 1U);
}

TEST_F(ReplayIdleTest, ABatchOfAnotherGroupIsRefused) {
    Bytes request = Batch(Numbered(2, 0));
    request[0] = 17;
    ExpectRefused(request, kWrongSid);
}

TEST_F(ReplayIdleTest, UnknownServicesAreRefused) {
    for (const uint8_t sid : Bytes{0, 2, 7, 128, 255}) {
        ExpectRefused({18, sid}, kWrongSid);
    }
}

TEST_F(ReplayIdleTest, ACommandOfOneByteIsRefused) {
    for (const uint8_t sid : Bytes{kFinish, kCancel, kPause, kContinue}) {
        // The handle stands where the sid would.
        usb.HostWrite(Frame({18}, sid));
        service->HandleReadEvent();
        EXPECT_EQ(Head(Reply(), 14),
                  (Bytes{0, 5, 0, 0, 0, 104, 2, kErrorLength, 18, sid, sid, 0, 0, 0}));
    }
}

TEST_F(ReplayIdleTest, MoreFramesThanBytesAreRefusedAndTheWholeOnesStayQueued) {
    Bytes request = Batch(Numbered(2, 0x100));
    request[2] = 3;
    ExpectRefused(request, kErrorLength);
    LetPass(20);
    EXPECT_TRUE(sent.empty());
    Take(Numbered(2, 0x102));
    AwaitSent(4);
    EXPECT_EQ(sent, Count(4, 0x100));
}

TEST_F(ReplayIdleTest, DataThatEndsEarlyIsRefused) {
    Bytes request = Batch({{0, 0x123, 0x4F, Bytes(64)}});
    request.pop_back();
    ExpectRefused(request, kErrorLength);
}

TEST_F(ReplayIdleTest, ACountOf65535OverAFewBytesIsRefused) {
    Bytes request = Batch(Numbered(2, 0));
    request[2] = 0xFF;
    request[3] = 0xFF;
    ExpectRefused(request, kErrorLength);
}

TEST_F(ReplayIdleTest, BytesBehindTheLastFrameMeanNothing) {
    Bytes request = Batch(Numbered(2, 0x100));
    request[2] = 1;
    Send(request);
    AwaitSent(1);
    LetPass(20);
    EXPECT_EQ(sent, Count(1, 0x100));
}

TEST_F(ReplayIdleTest, ABatchOf511FramesFits) {
    Take(Numbered(511, 0x100));
    AwaitSent(511);
    EXPECT_EQ(sent, Count(511, 0x100));
}

TEST_F(ReplayIdleTest, ABatchOf512FramesIsRefusedAndWhatItLeftFillsTheRing) {
    ExpectRefused(Batch(Numbered(512, 0)), kOpenFailed);
    ExpectRefused(Batch(Numbered(1, 0)), kOpenFailed);
    LetPass(20);
    EXPECT_TRUE(sent.empty());
    Command(kCancel);
    ExpectAReplayWorks();
}

TEST_F(ReplayIdleTest, AFinishBeforeAnyBatchEndsTheNextReplayByItself) {
    Command(kFinish);
    LetPass(150);
    EXPECT_EQ(ends, 0);
    Take(Numbered(3, 0x100));
    AwaitEnd();
    EXPECT_EQ(sent, Count(3, 0x100));
    LetPass(150);
    EXPECT_EQ(ends, 1);
}

TEST_F(ReplayIdleTest, AFinishBeforeABatchWithoutFramesEndsIt) {
    Command(kFinish);
    Send({18, kDownload, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7});
    AwaitEnd();
}

TEST_F(ReplayIdleTest, PauseAndContinueHoldNothingUp) {
    Command(kPause);
    ExpectAReplayWorks();
    Command(kCancel);
    Command(kContinue);
    ExpectAReplayWorks();
}

TEST_F(ReplayIdleTest, CancelsAreAnswered) {
    Command(kCancel);
    Command(kCancel);
    ExpectAReplayWorks();
}

TEST_F(ReplayIdleTest, WithoutDescriptorsABatchIsRefusedAndTheNextOnePlaysBoth) {
    VciCanReplayService& target = *service;
    ExpectRefused({18, 2}, kWrongSid); // a sanitizer needs descriptors for the first of all calls
    for (int more = 0; more < 3; ++more) {
        usb.HostWrite(Frame(Batch(Numbered(2, 0x100)), kHandle));
        {
            const FewDescriptors few(more);
            target.HandleReadEvent();
        }
        ExpectRefusal(Reply(), kOpenFailed, 18, kDownload);
        EXPECT_EQ(OpenedInAll(), 0U);
        Take(Numbered(2, 0x102));
        AwaitSent(4);
        EXPECT_EQ(sent, Count(4, 0x100));
        Command(kCancel);
        sent.clear();
    }
}

TEST_F(ReplayIdleTest, AServiceThatGoesSaysSoAndStopsItsReplay) {
    Take(Numbered(511, 0, 1000));
    testing::internal::CaptureStdout();
    service.reset();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "~VciCanReplayService\n");
    Listen();
    sent.clear();
    LetPass(20);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(OpenedInAll(), 0U);
}

} // namespace
