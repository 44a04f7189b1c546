#include "drivers/CanManage.h"

#include "support/BoardTest.h"
#include "utils/TempDir.h"

#include <memory>

namespace {

using Drivers::CanManage;

class CanManageTest : public BoardTest {
  protected:
    CanManageTest() {
        CanManage::statusMask_ = 0;
        CanManage::ListenstatusMask_ = 0;
        CanManage::ListenchannelForbidden_ = 0;
        for (int ch = 0; ch < 6; ++ch) {
            files.Write("chr" + std::to_string(ch), "");
            Core(ch).SetWord(0x18, 1); // a reset ends at once
        }
        Start();
    }

    void Start() { can = std::make_unique<CanManage>(files / "chr", files / "forbidden"); }

    MemoryRegAccess& Core(int ch) {
        return board.Registers(0x80000000U + (static_cast<uint32_t>(ch) << 16));
    }

    TempDir files;
    std::unique_ptr<CanManage> can;
};

constexpr CanTimeParam kTiming{{1, 16, 63, 16}, {2, 2, 7, 2}};

TEST_F(CanManageTest, ChannelsAreCountedFrom8To13InHostMessages) {
    EXPECT_EQ(can->maxChannelCount_, 6);
    EXPECT_EQ(can->startChannel_, 8);
    EXPECT_EQ(can->endChannel_, 13);
}

TEST_F(CanManageTest, BitRatesAre0UntilTimingIsSet) {
    CanManage::BaudRate_[3] = 1;
    CanManage::DataBaudRate_[3] = 1;
    const CanManage another(files / "chr", files / "another");
    EXPECT_EQ(CanManage::BaudRate_[3], 0);
    EXPECT_EQ(CanManage::DataBaudRate_[3], 0);
}

TEST_F(CanManageTest, TimingGivesTheBitRatesOfA40MHzClock) {
    EXPECT_EQ(can->SetTimeParam(1, 1, &kTiming), 0);
    EXPECT_EQ(CanManage::BaudRate_[1], 500000);
    EXPECT_EQ(CanManage::DataBaudRate_[1], 2000000);
    EXPECT_EQ(files.Read("chr1").size(), 32U);
}

TEST_F(CanManageTest, BitRatesAreDividedAsWholeNumbers) {
    const CanTimeParam thirds{{3, 1, 1, 1}, {255, 1, 255, 255}};
    EXPECT_EQ(can->SetTimeParam(0, 1, &thirds), 0);
    EXPECT_EQ(CanManage::BaudRate_[0], 4444444);
    EXPECT_EQ(CanManage::DataBaudRate_[0], 306);
}

TEST_F(CanManageTest, APrescalerOf0GivesTheBitRate0) {
    const CanTimeParam zero{{0, 1, 63, 16}, {0, 0, 0, 0}};
    CanManage::BaudRate_[0] = 1;
    EXPECT_EQ(can->SetTimeParam(0, 0, &zero), 0);
    EXPECT_EQ(CanManage::BaudRate_[0], 0);
    EXPECT_EQ(CanManage::DataBaudRate_[0], 0);
}

TEST_F(CanManageTest, TimingOfAnOpenChannelIsRefusedAndChangesNothing) {
    const CanTimeParam before{{4, 5, 6, 7}, {0, 0, 0, 0}};
    can->SetTimeParam(4, 0, &before);
    can->SetSecondarySamplePoint(4, 1, 17);
    const std::string written = files.Read("chr4");
    const int rate = CanManage::BaudRate_[4];
    CanManage::statusMask_ = 1 << 4;
    const CanTimeParam oneMbit{{1, 16, 63, 16}, {1, 8, 31, 8}};
    EXPECT_EQ(can->SetTimeParam(4, 1, &oneMbit), -1);
    EXPECT_EQ(files.Read("chr4"), written);
    EXPECT_EQ(CanManage::BaudRate_[4], rate);
    EXPECT_EQ(CanManage::DataBaudRate_[4], 0);
    EXPECT_EQ(Core(4).Word(0x88), 0x11100U);
    can->SetControllerMode(4, 2); // programs what was set before, of a classic channel
    EXPECT_EQ(Core(4).Word(0x08), 3U);
    EXPECT_EQ(Core(4).Word(0x8C), 0U);
    EXPECT_EQ(can->SetTimeParam(3, 1, &kTiming), 0); // its neighbour is closed
}

TEST_F(CanManageTest, TimingThatIsNotTakenLeavesTheBitRates) {
    testing::internal::CaptureStdout();
    CanManage deviceless(files / "none", files / "another");
    EXPECT_EQ(testing::internal::GetCapturedStdout().substr(0, 25), "open char device failed: ");
    EXPECT_EQ(deviceless.SetTimeParam(0, 1, &kTiming), -65282);
    EXPECT_EQ(CanManage::BaudRate_[0], 0);
}

TEST_F(CanManageTest, ADataRateOfExactly1MbitPutsTheSecondSamplePointOff) {
    can->SetSecondarySamplePoint(0, 1, 17);
    EXPECT_EQ(Core(0).Word(0x88), 0x11100U);
    const CanTimeParam oneMbit{{1, 16, 63, 16}, {1, 8, 31, 8}};
    EXPECT_EQ(can->SetTimeParam(0, 1, &oneMbit), 0);
    EXPECT_EQ(CanManage::DataBaudRate_[0], 1000000);
    EXPECT_EQ(Core(0).Word(0x88), 0U);
}

TEST_F(CanManageTest, AnotherDataRateLeavesTheSecondSamplePoint) {
    can->SetSecondarySamplePoint(0, 1, 17);
    can->SetTimeParam(0, 1, &kTiming);
    EXPECT_EQ(Core(0).Word(0x88), 0x11100U);
}

TEST_F(CanManageTest, TheSecondSamplePointOfAnOpenChannelIsRefused) {
    CanManage::statusMask_ = 1;
    EXPECT_EQ(can->SetSecondarySamplePoint(0, 1, 17), -1);
    EXPECT_TRUE(Core(0).writes.empty());
}

TEST_F(CanManageTest, ResistorsAddUp) {
    EXPECT_EQ(can->SetTerminal(5, 1), 0);
    EXPECT_EQ(can->SetTerminal(5, 2), 0);
    EXPECT_EQ(board.Registers(0x82000000).Word(4), 0x820U);
    EXPECT_EQ(can->SetTerminal(5, 3), -1);
}

TEST_F(CanManageTest, TheModeIsKeptInItsMask) {
    EXPECT_EQ(can->SetControllerMode(2, 2), 0);
    EXPECT_EQ(CanManage::GetListenStatus(2), 1);
    EXPECT_EQ(CanManage::ListenstatusMask_, 4);
    EXPECT_EQ(can->SetControllerMode(2, 1), 0); // no such mode
    EXPECT_EQ(CanManage::GetListenStatus(2), 1);
    EXPECT_EQ(can->SetControllerMode(2, 0), 0);
    EXPECT_EQ(CanManage::GetListenStatus(2), 0);
}

TEST_F(CanManageTest, AFrameThatWaitsAtTheChangeToListenModeIsForbidden) {
    Core(1).SetWord(0x2100, 0x123);
    can->SetControllerMode(1, 2);
    EXPECT_EQ(can->GetListenForbidden(1), 1);
    EXPECT_EQ(CanManage::ListenchannelForbidden_, 2);
    can->SetControllerMode(1, 0);
    EXPECT_EQ(can->GetListenForbidden(1), 1);
    can->ClearListenForbidden(1);
    EXPECT_EQ(can->GetListenForbidden(1), 0);
}

TEST_F(CanManageTest, WithoutAWaitingFrameTheForbiddenBitsStay) {
    CanManage::ListenchannelForbidden_ = 0b101010;
    can->SetControllerMode(2, 2);
    can->SetControllerMode(3, 2);
    EXPECT_EQ(CanManage::ListenchannelForbidden_, 0b101010);
}

TEST_F(CanManageTest, ClearAllForgetsTheMasksButNotTheForbiddenBits) {
    files.Write("forbidden", "21");
    CanManage::statusMask_ = 0x3F;
    CanManage::ListenstatusMask_ = 0x3F;
    CanManage::ListenchannelForbidden_ = 5;
    can->ClearAllStatus();
    EXPECT_EQ(CanManage::statusMask_, 0);
    EXPECT_EQ(CanManage::ListenstatusMask_, 0);
    EXPECT_EQ(CanManage::ListenchannelForbidden_, 5);
    EXPECT_EQ(files.Read("forbidden"), "21");
}

TEST_F(CanManageTest, TheForbiddenBitsAreSavedAtTheEndAndLoadedAtTheNextStart) {
    CanManage::ListenchannelForbidden_ = 37;
    can.reset();
    EXPECT_EQ(files.Read("forbidden"), "37");
    CanManage::ListenchannelForbidden_ = 0;
    Start();
    EXPECT_EQ(CanManage::ListenchannelForbidden_, 37);
}

TEST_F(CanManageTest, AForbiddenFileThatIsNoNumberIsPassedOver) {
    can.reset();
    files.Write("forbidden", "x");
    CanManage::ListenchannelForbidden_ = 9;
    Start();
    EXPECT_EQ(CanManage::ListenchannelForbidden_, 9);
}

TEST_F(CanManageTest, AChannelWithoutItsNetDeviceIsNotOpen) {
    EXPECT_EQ(can->OpenDevice(0), -8);
    EXPECT_EQ(CanManage::GetDeviceStatus(0), 0);
}

TEST_F(CanManageTest, AChannelWhoseNetDeviceDoesNotStopStaysOpenAndKeepsItsCounters) {
    CanManage::statusMask_ = 1;
    CanRxFrameNum[0] = 7;
    Core(0).SetWord(0x00, 2);
    EXPECT_EQ(can->CloseDevice(0), -4);
    EXPECT_EQ(CanManage::GetDeviceStatus(0), 1);
    EXPECT_EQ(CanRxFrameNum[0], 7U);
    EXPECT_EQ(Core(0).Word(0x00), 0U); // in configuration mode all the same
    CanRxFrameNum[0] = 0;
}

} // namespace
