// Single frames, sleep, wake-up and disturbances.

#include "modules/VciLinMsgFixture.h"

namespace {

Bytes Single() {
    return {6,  7,  0,  1,  0x99, 4,    0x56, 63,   0xAB, 10,   11,   1,
            2,  3,  4,  5,  6,    7,    8,    20,   21,   22,   23,   24,
            25, 26, 27, 28, 0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55};
}

TEST_F(VciLinMsgServiceTest, ASingleFrameByteForByte) {
    ASSERT_EQ(Single().size(), 36U);
    ExpectDone(Single());
    EXPECT_EQ(Message(0, 0xAB),
              (Bytes{3,  0,  0,  0,  1,    0,    0,    0,    0xAB, 4,    0x56, 0,   1,  2,
                     3,  4,  0,  0,  0,    0,    10,   11,   63,   20,   21,   22,  23, 24,
                     25, 26, 27, 28, 0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55}));
}

TEST_F(VciLinMsgServiceTest, ASingleHeaderHasNoResponse) {
    Bytes request = Single();
    request[3] = 0;
    request[5] = 8;
    request.push_back(0); // a longer request is none the worse
    ExpectDone(request);
    const Bytes message = Message(0, 0xAB);
    ASSERT_EQ(message.size(), 40U);
    EXPECT_EQ(Bytes(message.begin(), message.begin() + 20),
              (Bytes{2, 0, 0, 0, 0, 0, 0, 0, 0xAB, 8, 0x56, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(VciLinMsgServiceTest, ASingleFramesLengthAndInterByteTimeHaveTheirLimits) {
    for (const uint8_t length : Bytes{9, 255}) {
        Bytes request = Single();
        request[5] = length;
        ExpectRefused(request, kOutOfRange);
    }
    for (const uint8_t time : Bytes{64, 255}) {
        Bytes request = Single();
        request[7] = time;
        ExpectRefused(request, kOutOfRange);
    }
    EXPECT_TRUE(Frames(0).empty());
}

TEST_F(VciLinMsgServiceTest, ASingleFrameThatIsNotTakenIsRefused) {
    lin.sockets[0]->refuse = true;
    ExpectRefused(Single(), kSendFail, "VciLinMsgService::SingleMsgSend : write fail");
}

TEST_F(VciLinMsgServiceTest, AResponderWakesTheBus) {
    ExpectDone({6, 8, 1, 0xEE, 1, 5, 0x34, 0x12, 0x78, 0x56, 0});
    EXPECT_EQ(Handed(1),
              Record({4, 0, 0, 0, 0, 0, 0, 0, 1, 0, 5, 0, 0x78, 0x56, 0, 0, 0x34, 0x12}));
}

TEST_F(VciLinMsgServiceTest, ACommanderMayOnlyAskToSleepAndAResponderToWake) {
    ExpectRefused({6, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0}, kChannelState);
    BeCommander(0);
    ExpectRefused({6, 8, 0, 0, 1, 0, 0, 0, 0, 0, 0}, kChannelState);
    for (const uint8_t value : Bytes{2, 255}) {
        ExpectRefused({6, 8, 0, 0, value, 0, 0, 0, 0, 0, 0}, kOutOfRange);
        ExpectRefused({6, 8, 1, 0, value, 0, 0, 0, 0, 0, 0}, kOutOfRange);
    }
    EXPECT_EQ(Handed(0), Bytes(128));
    EXPECT_EQ(Handed(1), Bytes(128));
}

class VciLinMsgServiceSleepTest : public VciLinMsgServiceTest {
  protected:
    std::string Run(double seconds) { return LinTest::Run(loop, seconds); }

    const Bytes request{6, 8, 0, 0, 0, 2, 0x34, 0x12, 0x78, 0x56, 0};
};

TEST_F(VciLinMsgServiceSleepTest, ASleepStopsTheScheduleAndGoesOutBehindTheLastFrame) {
    SetBaudrate(0, 1000);
    BeCommander(0);
    Download(0, {1});
    lin.schedules.startExecutor(0);
    WaitForFrames(1);
    Bytes answer;
    EXPECT_EQ(Told([&] { answer = Ask(request); }), "VciLinMsgService::SetTimer delay_us:139000\n");
    ExpectShort(answer, 6, 8);
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_EQ(Handed(0), Bytes(128));                                 // not yet
    EXPECT_EQ(Run(0.6), "VciLinMsgService::SleepCallBack timeout\n"); // once
    EXPECT_EQ(Handed(0),
              Record({4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0x78, 0x56, 0, 0, 0x34, 0x12}));
}

TEST_F(VciLinMsgServiceSleepTest, WithoutABitRateASleepWaitsAMillisecond) {
    BeCommander(0);
    EXPECT_EQ(Told([&] { Ask(request); }), "VciLinMsgService::SetTimer delay_us:1000\n");
    EXPECT_EQ(Run(0.1), "VciLinMsgService::SleepCallBack timeout\n");
}

TEST_F(VciLinMsgServiceSleepTest, ASleepOfAChannelThatIsClosedMeanwhileFails) {
    BeCommander(0);
    Ask(request);
    CloseDevice(0);
    EXPECT_EQ(Run(0.1), "Drivers::LinManage::OperationCfg failed! dev off!\n"
                        "VciLinMsgService::SleepCallBack fail \n");
}

TEST_F(VciLinMsgServiceSleepTest, ALaterSleepTakesThePlaceOfAnEarlierOne) {
    BeCommander(0);
    BeCommander(1);
    Bytes other = request;
    other[2] = 1;
    Ask(request);
    Ask(other);
    EXPECT_EQ(Run(0.1), "VciLinMsgService::SleepCallBack timeout\n");
    EXPECT_EQ(Handed(0), Bytes(128));
    EXPECT_EQ(Handed(1)[0], 4);
}

TEST_F(VciLinMsgServiceSleepTest, ASleepThatTakesAPlaceAtTheLastMomentWaitsItsOwnTime) {
    BeCommander(0);
    Ask(request);
    // Both are ready in the same turn of the loop, and this one is called first.
    WhenReady renewed(loop, [&] {
        SetBaudrate(0, 1000);
        Ask(request);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the first time is over
    EXPECT_EQ(Run(0.05), "VciLinMsgService::SetTimer delay_us:139000\n");
    EXPECT_EQ(Handed(0), Bytes(128));
    EXPECT_EQ(Run(0.6), "VciLinMsgService::SleepCallBack timeout\n"); // once
    EXPECT_EQ(Handed(0)[0], 4);
}

TEST_F(VciLinMsgServiceSleepTest, ABitRateThatNoBusHasIsAnsweredAndNothingIsSent) {
    SetBaudrate(0, 138); // a frame of 8 bytes takes a second and more
    BeCommander(0);
    ExpectDone(request);
    EXPECT_EQ(Run(0.1).find("SleepCallBack"), std::string::npos);
    EXPECT_EQ(Handed(0), Bytes(128));
}

TEST_F(VciLinMsgServiceTest, ADisturbanceByteForByte) {
    ExpectDone({6, 9, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0x34, 0x12});
    EXPECT_EQ(Handed(0),
              Record({3, 0, 0, 0, 0, 0, 0, 0, 3, 2, 0, 4, 1, 5, 6, 7, 8, 0, 0x34, 0x12}));
}

} // namespace
