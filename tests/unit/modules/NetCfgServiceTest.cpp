#include "modules/NetCfgService.h"

#include "base/ZephEventLoop.h"
#include "support/ServiceTest.h"
#include "utils/TempDir.h"

namespace {

using Drivers::CanManage;

constexpr uint8_t kOutOfRange = 11;

class NetCfgServiceTest : public ServiceTest {
  protected:
    NetCfgServiceTest() {
        CanManage::statusMask_ = 0;
        CanManage::ListenstatusMask_ = 0;
        for (uint32_t ch = 0; ch < 6; ++ch) {
            Core(ch).SetWord(0x18, 1); // a reset ends at once
        }
    }

    Bytes Ask(const Bytes& request) { return ServiceTest::Ask(service, request); }

    void ExpectOutOfRange(const Bytes& request) {
        ExpectRefusal(Ask(request), kOutOfRange, 21, request[1]);
    }

    MemoryRegAccess& Core(uint32_t ch) { return board.Registers(0x80000000U + (ch << 16)); }

    TempDir files;
    ZephEventLoop loop;
    NetCfgService service{&loop, files / "clear.flag"};
};

TEST_F(NetCfgServiceTest, TimingIsAnsweredShortlyAndSetsTheMode) {
    CanManage::ListenstatusMask_ = 2;
    ExpectShort(Ask({21, 41, 9, 1, 0, 1, 16, 63, 16, 2, 2, 7, 2}), 21, 41);
    EXPECT_EQ(CanManage::GetListenStatus(1), 0);
}

TEST_F(NetCfgServiceTest, FdTimingReachesTheCoreInListenMode) {
    ExpectShort(Ask({21, 41, 8, 1, 1, 1, 16, 63, 16, 2, 2, 7, 2}), 21, 41);
    EXPECT_EQ(CanManage::GetListenStatus(0), 1);
    EXPECT_EQ(Core(0).Word(0x08), 0U);
    EXPECT_EQ(Core(0).Word(0x0C), 0x000F0F3EU);
    EXPECT_EQ(Core(0).Word(0x88), 1U);
    EXPECT_EQ(Core(0).Word(0x8C), 0x00010106U);
}

TEST_F(NetCfgServiceTest, ClassicTimingLeavesTheDataTiming) {
    Ask({21, 41, 8, 0, 1, 4, 16, 63, 16, 2, 2, 7, 2});
    EXPECT_EQ(Core(0).Word(0x08), 3U);
    EXPECT_EQ(Core(0).Word(0x88), 0U);
    EXPECT_EQ(Core(0).Word(0x8C), 0U);
}

TEST_F(NetCfgServiceTest, TimingOfAnOpenChannelIsAnsweredAllTheSame) {
    CanManage::statusMask_ = 1;
    ExpectShort(Ask({21, 41, 8, 0, 0, 1, 16, 63, 16}), 21, 41);
}

TEST_F(NetCfgServiceTest, Channels8To13Pass) {
    for (const uint8_t channel : Bytes{8, 13}) {
        ExpectShort(Ask({21, 41, channel, 0, 0, 1, 16, 63, 16}), 21, 41);
        ExpectShort(Ask({21, 42, channel, 0, 0}), 21, 42);
        ExpectShort(Ask({21, 43, channel, 0}), 21, 43);
        ExpectTime(Ask({21, 44, channel, 0}), 21, 44);
        ExpectShort(Ask({21, 45, channel, 0}), 21, 45);
    }
}

TEST_F(NetCfgServiceTest, OtherChannelsAreOutOfRange) {
    for (const uint8_t channel : Bytes{0, 7, 14, 255}) {
        ExpectOutOfRange({21, 41, channel, 0, 0, 1, 16, 63, 16});
        ExpectOutOfRange({21, 42, channel, 0, 0});
        ExpectOutOfRange({21, 43, channel, 0});
        ExpectOutOfRange({21, 44, channel, 0});
        ExpectOutOfRange({21, 45, channel, 0});
    }
}

TEST_F(NetCfgServiceTest, ABadValueIsRefusedBeforeAnythingIsDone) {
    ExpectOutOfRange({21, 41, 8, 2, 0, 1, 16, 63, 16});
    ExpectOutOfRange({21, 41, 8, 0, 2, 1, 16, 63, 16});
    ExpectOutOfRange({21, 42, 8, 2, 0});
    ExpectOutOfRange({21, 43, 8, 3});
    ExpectOutOfRange({21, 44, 8, 2});
    ExpectOutOfRange({21, 45, 8, 2});
    EXPECT_TRUE(Core(0).writes.empty());
    EXPECT_TRUE(board.Registers(0x82000000).writes.empty());
    EXPECT_EQ(CanManage::ListenstatusMask_, 0);
}

TEST_F(NetCfgServiceTest, TheSecondSamplePointIsSet) {
    ExpectShort(Ask({21, 42, 10, 1, 17}), 21, 42);
    EXPECT_EQ(Core(2).Word(0x88), 0x11100U);
    ExpectShort(Ask({21, 42, 10, 0, 17}), 21, 42);
    EXPECT_EQ(Core(2).Word(0x88), 0U);
}

TEST_F(NetCfgServiceTest, TerminationIsSet) {
    ExpectShort(Ask({21, 43, 8, 2}), 21, 43);
    EXPECT_EQ(board.Registers(0x82000000).Word(4), 0x40U);
}

TEST_F(NetCfgServiceTest, OpenAndCloseAreAnsweredWithTheTimeWhateverCameOfThem) {
    ExpectTime(Ask({21, 44, 8, 1}), 21, 44); // there is no net device here
    EXPECT_EQ(CanManage::GetDeviceStatus(0), 0);
    ExpectTime(Ask({21, 44, 8, 0}), 21, 44);
    EXPECT_EQ(Core(0).Word(0x98), 0xFFFFFFFFU);
}

TEST_F(NetCfgServiceTest, TheModeIsSetAndPrinted) {
    testing::internal::CaptureStdout();
    ExpectShort(Ask({21, 45, 11, 1}), 21, 45);
    EXPECT_EQ(CanManage::GetListenStatus(3), 1);
    ExpectShort(Ask({21, 45, 11, 0}), 21, 45);
    EXPECT_EQ(CanManage::GetListenStatus(3), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Set Can COntroller Mode: 0\nSet Can COntroller Mode: 0\n");
}

TEST_F(NetCfgServiceTest, AShortRequestReadsWhatStandsInTheBuffer) {
    Ask({21, 43, 12, 1});
    board.Registers(0x82000000).SetWord(4, 0);
    // Without its last byte: that of the frame's handle stands there, 0x44, which is out of range.
    ExpectOutOfRange({21, 43, 12});
}

TEST_F(NetCfgServiceTest, UnknownServicesAreRefused) {
    ExpectRefusal(Ask({21, 46}), 14, 21, 46);
    ExpectRefusal(Ask({21, 40}), 14, 21, 40);
}

TEST_F(NetCfgServiceTest, TheRestartAfterAClearAnswersItAndTakesTheFlagAway) {
    files.Write("clear.flag", "");
    bool flagged = false; // as the answer goes out: a start that fails before is asked again
    usb.doorbell = [&] {
        flagged = std::filesystem::exists(files / "clear.flag");
        return 0;
    };
    service.Init();
    ExpectTime(Answer(), 1, 8);
    EXPECT_TRUE(flagged);
    EXPECT_FALSE(std::filesystem::exists(files / "clear.flag"));
}

TEST_F(NetCfgServiceTest, AnyOtherStartAnswersNothing) {
    service.Init();
    EXPECT_TRUE(Answers().empty());
}

} // namespace
