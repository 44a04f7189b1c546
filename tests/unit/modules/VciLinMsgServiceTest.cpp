#include "modules/LinRequest.h"
#include "modules/VciLinMsgFixture.h"

namespace {

using Drivers::LinManage;

TEST(LinGetPID, ParityStandsInTheUpperBits) {
    EXPECT_EQ(LinGetPID(0), 0x80);
    EXPECT_EQ(LinGetPID(1), 0xC1);
    EXPECT_EQ(LinGetPID(2), 0x42);
    EXPECT_EQ(LinGetPID(3), 0x03);
    EXPECT_EQ(LinGetPID(0x10), 0x50);
    EXPECT_EQ(LinGetPID(0x3C), 0x3C);
    EXPECT_EQ(LinGetPID(0x3D), 0x7D);
    EXPECT_EQ(LinGetPID(0x3E), 0xFE);
    EXPECT_EQ(LinGetPID(0x3F), 0xBF);
}

TEST(LinGetPID, TheIdIsNotMasked) {
    EXPECT_EQ(LinGetPID(0x40), 0xC0);
    EXPECT_EQ(LinGetPID(0xBC), 0xBC);
    EXPECT_EQ(LinGetPID(0xFF), 0xFF);
}

TEST_F(VciLinMsgServiceTest, UnknownServicesAreRefused) {
    for (const uint8_t sid : Bytes{0, 11, 99, 255}) {
        ExpectRefused({6, sid, 0, 0}, 14);
    }
}

TEST_F(VciLinMsgServiceTest, ChannelsBeyondTheSecondAreOutOfRange) {
    for (const uint8_t channel : Bytes{2, 8, 50, 255}) {
        for (const uint8_t sid : Bytes{1, 3, 4, 5, 6}) {
            ExpectRefused({6, sid, channel, 0}, kOutOfRange);
        }
        for (const uint8_t sid : Bytes{7, 8, 9, 10}) {
            Bytes request{6, sid, channel, 0};
            request.resize(40);
            ExpectRefused(request, kOutOfRange);
        }
        ExpectRefused({6, 2, channel, 0}, kOutOfRange, "LIN linChannel error");
    }
}

TEST_F(VciLinMsgServiceTest, AClosedChannelIsAWrongSequenceForAllButItsConfiguration) {
    CloseDevice(1);
    for (uint8_t sid = 1; sid <= 6; ++sid) {
        ExpectRefused({6, sid, 1, 0}, kWrongSequence);
    }
    for (uint8_t sid = 7; sid <= 9; ++sid) {
        Bytes request{6, sid, 1, 0};
        request.resize(40);
        ExpectRefused(request, kWrongSequence);
    }
    ExpectRefused({6, 10, 1, 0, 0, 0, 0, 0}, kChannelState, // there is nothing to close
                  "ZephLinComM::LinComMClose： device do not open\n"
                  "VciLinMsgService::LinChannelConfig - close socket fail: ");
}

TEST_F(VciLinMsgServiceTest, AWrongLengthIsRefusedBeforeAnythingElse) {
    const auto expect = [&](uint8_t sid, size_t length, const std::string& name) {
        Bytes request{6, sid, 9, 9}; // no such channel
        request.resize(length);
        ExpectRefused(request, kLength, "VciLinMsgService::" + name + " length error");
    };
    expect(2, 3, "CfgPullUp");
    expect(5, 3, "SetClean");
    expect(6, 3, "ExecTable");
    expect(6, 5, "ExecTable");
    expect(7, 35, "SingleMsgSend");
    expect(8, 10, "WakeupSleepMsg");
    expect(9, 12, "DisturbMsg");
    expect(10, 7, "LinChannelConfig");
}

TEST_F(VciLinMsgServiceTest, ADownloadedTableRunsWithItsHeaders) {
    SetBaudrate(0, 19200);
    BeCommander(0);
    ExpectDone({6, 1, 0, 2, 0x01, 4, 3, 0, 0x3C, 8, 8, 0});
    ExpectDone({6, 6, 0, 1});
    auto frames = WaitForFrames(3);
    ASSERT_GE(frames.size(), 3U);
    frames.resize(3);
    EXPECT_EQ(Pids(frames), (Bytes{0xC1, 0x3C, 0xC1}));
    Bytes expected{0xC1, 0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xC1, 4, 0x55};
    expected.resize(72);
    EXPECT_EQ(frames[0], expected);
    ExpectDone({6, 6, 0, 0});
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
}

TEST_F(VciLinMsgServiceTest, AnEntryThatTheTableDoesNotTakeIsToldAndRefused) {
    BeCommander(0);
    Download(0, {1});
    const lin_tx_message message = Header(0x80);
    testing::internal::CaptureStdout(); // each but the first is told
    for (int i = 0; i < 255; ++i) {
        EXPECT_EQ(lin.schedules.addToStandbyTable(0, 1000, 1, &message), 0);
    }
    testing::internal::GetCapturedStdout();
    ExpectRefused({6, 1, 0, 1, 0x00, 2, 1, 0}, kUpdateConfig, "LinTable::addItem ID: 128 add fail");
    lin.schedules.startExecutor(0); // the current table is the one before
    EXPECT_EQ(Pids(WaitForFrames(1))[0], 1);
}

TEST_F(VciLinMsgServiceTest, ADownloadOfNoEntriesLeavesAnEmptyTable) {
    BeCommander(0);
    Download(0, {1});
    ExpectDone({6, 1, 0, 0});
    Bytes answer;
    EXPECT_EQ(Told([&] {
                  answer = Ask({6, 6, 0, 1});
              }),
              "LinScheduleManager::startExecutor : start failed\n");
    ExpectShort(answer, 6, 6); // a start that fails is answered all the same
}

TEST_F(VciLinMsgServiceTest, ADownloadWhileRunningSwapsTheTables) {
    BeCommander(0);
    Download(0, {1});
    lin.schedules.startExecutor(0);
    WaitForFrames(2);
    ExpectDone({6, 1, 0, 1, 0x02, 2, 2, 0});
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
    Frames(0);
    EXPECT_EQ(Pids(WaitForFrames(2))[1], 0x42);
}

TEST_F(VciLinMsgServiceTest, ADownloadedLengthOfAnySizeStandsInItsFrame) {
    BeCommander(0);
    ExpectDone({6, 1, 0, 1, 0x01, 255, 1, 0});
    ExpectDone({6, 6, 0, 1});
    EXPECT_EQ(WaitForFrames(1)[0][17], 255);
}

TEST_F(VciLinMsgServiceTest, AResponseSetBeforeTheDownloadIsMergedIntoIt) {
    BeCommander(0);
    ExpectDone({6, 3, 0, 1, 0x01, 2, 0xAA, 0xBB, 3, 4, 5, 6, 7, 8});
    ExpectDone({6, 1, 0, 1, 0x01, 8, 1, 0});
    ExpectDone({6, 6, 0, 1});
    const auto frame = WaitForFrames(1)[0];
    EXPECT_EQ(Bytes(frame.begin() + 8, frame.begin() + 28),
              (Bytes{1, 0, 0, 0, 1, 0, 0, 0, 0xC1, 2, 0x55, 0, 0xAA, 0xBB, 0, 0, 0, 0, 0, 0}));
}

TEST_F(VciLinMsgServiceTest, ACountBeyondTheBytesSentReadsWhatStandsInTheBuffer) {
    BeCommander(0);
    Bytes request{6, 1, 0, 255, 0x01, 2, 1, 0};
    Bytes answer;
    const std::string told = Told([&] { answer = Ask(request); });
    ExpectShort(answer, 6, 1);
    // The handle and the zeros behind it, as frames of the id 0 and others.
    EXPECT_NE(told.find("LinTable::addItem ID 128 has existed\n"), std::string::npos);
    ExpectDone({6, 3, 1, 255});
    EXPECT_EQ(Frames(1).size(), 255U);
    ExpectDone({6, 4, 1, 255});
    EXPECT_EQ(Frames(1).size(), 255U);
}

TEST_F(VciLinMsgServiceTest, TheRoleIsSetHereAndInTheDriver) {
    ExpectDone({6, 2, 0, 7});
    EXPECT_TRUE(lin.schedules.getStatus(0));
    EXPECT_EQ(Written(0), Record({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7})); // as it came
    Rewind(0);
    ExpectDone({6, 2, 0, 0});
    EXPECT_FALSE(lin.schedules.getStatus(0));
    EXPECT_EQ(Written(0), Record({}));
}

TEST_F(VciLinMsgServiceTest, TheRoleOfARunningScheduleStays) {
    BeCommander(0);
    Download(0, {1});
    lin.schedules.startExecutor(0);
    ExpectRefused({6, 2, 0, 0}, kWrongSequence,
                  "LinScheduleManager::setStatus fail! executor running\nLIN setStatus error");
    EXPECT_TRUE(lin.schedules.getStatus(0));
}

// The driver of channel 1 refuses every record.
class VciLinMsgServiceRefusedTest : public VciLinMsgServiceTest {
  protected:
    VciLinMsgServiceRefusedTest() {
        close(LinManage::chrDevFd[1].exchange(open("/dev/full", O_RDWR | O_CLOEXEC)));
        testing::internal::CaptureStderr();
    }
    ~VciLinMsgServiceRefusedTest() override {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "write: No space left on device\n");
    }
};

TEST_F(VciLinMsgServiceRefusedTest, ARoleThatTheDriverRefusesIsRefused) {
    ExpectRefused({6, 2, 1, 1}, kUpdateConfig, "LIN ParmCfg error");
    EXPECT_TRUE(lin.schedules.getStatus(1)); // and yet set here
}

TEST_F(VciLinMsgServiceRefusedTest, AWakeupThatTheDriverRefusesIsDone) {
    ExpectDone({6, 8, 1, 0, 1, 1, 0, 0, 0, 0, 0});
}

TEST_F(VciLinMsgServiceRefusedTest, ADisturbanceThatTheDriverRefusesIsDone) {
    ExpectDone({6, 9, 1, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
}

TEST_F(VciLinMsgServiceRefusedTest, ResponsesThatTheDriverDoesNotClearAreCleaned) {
    ExpectDone({6, 5, 1, 1});
}

TEST_F(VciLinMsgServiceTest, AResponsesFrameByteForByteForTheDriverOfAResponder) {
    ExpectDone({6, 3, 1, 1, 0x3C, 3, 1, 2, 3, 4, 5, 6, 7, 8});
    Bytes expected{1, 0, 0, 0, 1, 0, 0, 0, 0x3C, 3, 0x55, 0, 1, 2, 3};
    expected.resize(40);
    EXPECT_EQ(Message(1, 0x3C), expected);
    EXPECT_TRUE(Frames(0).empty());
}

TEST_F(VciLinMsgServiceTest, AResponseOfALengthAboveEightTakesEightBytes) {
    for (const uint8_t length : Bytes{9, 100, 255}) {
        ExpectDone({6, 3, 1, 1, 0x3C, length, 1, 2, 3, 4, 5, 6, 7, 8});
        Bytes expected{1, 0, 0, 0, 1, 0, 0, 0, 0x3C, length, 0x55, 0, 1, 2, 3, 4, 5, 6, 7, 8};
        expected.resize(40);
        EXPECT_EQ(Message(1, 0x3C), expected);
    }
}

TEST_F(VciLinMsgServiceTest, AResponseOnAResponderStartsNothingAndSaysSo) {
    Download(1, {1});
    Bytes answer;
    EXPECT_EQ(Told([&] {
                  answer = Ask({6, 3, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0});
              }),
              "LinScheduleManager::startExecutor : start failed\n");
    ExpectShort(answer, 6, 3);
}

TEST_F(VciLinMsgServiceTest, AResponseOnACommanderStartsItsScheduleWhetherItRanOrNot) {
    BeCommander(0);
    Download(0, {0xC1});
    ExpectDone({6, 3, 0, 1, 1, 1, 0x77, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
    EXPECT_EQ(WaitForFrames(1)[0][20], 0x77);
    ExpectDone({6, 3, 0, 1, 1, 1, 0x88, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
    Frames(0);
    EXPECT_EQ(WaitForFrames(2)[1][20], 0x88);
}

TEST_F(VciLinMsgServiceTest, AResponseThatIsNotTakenIsRefused) {
    lin.sockets[1]->refuse = true;
    ExpectRefused({6, 3, 1, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0}, kUpdateConfig,
                  "VciLinMsgService::SingleMsgSend : write fail");
    ExpectRefused({6, 4, 1, 1, 1}, kUpdateConfig,
                  "LinScheduleManager::delResMsg not master or don't have pid:193\n"
                  "VciLinMsgService::SingleMsgSend : write fail");
}

TEST_F(VciLinMsgServiceTest, ADeletedResponsesFrameByteForByte) {
    ExpectDone({6, 4, 1, 1, 0x3C});
    Bytes expected{1, 0, 0, 0, 0, 0, 0, 0, 0x3C};
    expected.resize(40);
    EXPECT_EQ(Message(1, 0x3C), expected);
}

TEST_F(VciLinMsgServiceTest, ADeletionLeavesTheScheduleRunningWithoutTheResponse) {
    BeCommander(0);
    Download(0, {0xC1});
    ExpectDone({6, 3, 0, 1, 1, 1, 0x77, 0, 0, 0, 0, 0, 0, 0});
    WaitForFrames(1);
    ExpectDone({6, 4, 0, 1, 1});
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
    Frames(0);
    const auto frame = WaitForFrames(2)[1];
    EXPECT_EQ(frame[8], 0);
    EXPECT_EQ(frame[12], 0);
    EXPECT_EQ(frame[20], 0x77); // the data stay
}

TEST_F(VciLinMsgServiceTest, ACleaningStopsAndTakesWhatItNames) {
    BeCommander(0);
    const auto run = [&] {
        Download(0, {0xC1});
        ExpectDone({6, 3, 0, 1, 1, 1, 0x77, 0, 0, 0, 0, 0, 0, 0});
        ASSERT_TRUE(lin.schedules.getExecutorStatus(0));
    };
    const auto hasTable = [&] {
        lin.schedules.startExecutor(0);
        const bool runs = lin.schedules.getExecutorStatus(0);
        lin.schedules.stopExecutor(0);
        return runs;
    };
    const auto hasResponse = [&] {
        lin_tx_message message = Header(0xC1);
        lin.schedules.setResMsg(0, 0xC1, &message);
        return message.flag.is_active != 0;
    };
    run();
    ExpectDone({6, 5, 0, 0});
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_FALSE(hasTable());
    EXPECT_TRUE(hasResponse());
    run();
    ExpectDone({6, 5, 0, 1});
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_TRUE(hasTable());
    EXPECT_FALSE(hasResponse());
    run();
    ExpectDone({6, 5, 0, 2});
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_FALSE(hasTable());
    EXPECT_FALSE(hasResponse());
    EXPECT_EQ(Written(0), Bytes(128)); // nothing for the driver of a commander
    run();
    for (const uint8_t what : Bytes{3, 4, 255}) {
        ExpectDone({6, 5, 0, what});
        EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
        EXPECT_TRUE(hasResponse());
    }
}

TEST_F(VciLinMsgServiceTest, ACleaningOfAResponderClearsTheDriversResponses) {
    for (const uint8_t what : Bytes{1, 2}) {
        SetBaudrate(1, 0); // the device afresh
        ExpectDone({6, 5, 1, what});
        Bytes expected(128);
        expected[28] = 1;
        EXPECT_EQ(Written(1), expected) << int{what};
    }
    SetBaudrate(1, 0);
    ExpectDone({6, 5, 1, 0});
    EXPECT_EQ(Written(1), Bytes(128));
}

TEST_F(VciLinMsgServiceTest, ATableIsOnlyStartedAndStopped) {
    ExpectRefused({6, 6, 0, 2}, kOutOfRange);
    ExpectRefused({6, 6, 0, 255}, kOutOfRange);
}

TEST_F(VciLinMsgServiceTest, ChannelsAreOnlyOpenedAndClosed) {
    ExpectRefused({6, 10, 0, 2, 0, 0, 0, 0}, kOutOfRange);
    ExpectRefused({6, 10, 0, 255, 0, 0, 0, 0}, kOutOfRange);
}

} // namespace
