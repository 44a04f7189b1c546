#include "drivers/CanDriver.h"

#include "support/BoardTest.h"
#include "utils/TempDir.h"

#include <utility>

namespace {

using Drivers::CanDriver;
using Writes = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr int kChannel = 2;

class CanDriverTest : public BoardTest {
  protected:
    // 500 kbit/s and 2 Mbit/s at 40 MHz.
    static constexpr CanTimeParam kTiming{{1, 16, 63, 16}, {2, 2, 7, 2}};

    // The core comes back from its reset at once.
    void Answer() { core.SetWord(0x18, 1); }

    TempDir files;
    MemoryRegAccess& core = board.Registers(0x80020000);
    MemoryRegAccess& shared = board.Registers(0x82000000);
    CanDriver driver{"can2", kChannel, Devices()};

  private:
    std::string Devices() const {
        files.Write("chr2", "");
        return files / "chr";
    }
};

TEST_F(CanDriverTest, ADeviceThatCannotBeOpenedIsToldAndTakesNoTiming) {
    testing::internal::CaptureStdout();
    CanDriver missing("can3", 3, files / "chr");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "open char device failed: " + (files / "chr3") + "\n");
    EXPECT_LT(missing.NorvaneCanChrFd(), 0);
    EXPECT_EQ(missing.SetTimeParam(0, &kTiming), -65282);
}

TEST_F(CanDriverTest, TheTimingIsWrittenAs32BytesInHostOrder) {
    EXPECT_EQ(driver.SetTimeParam(1, &kTiming), 0);
    EXPECT_EQ(files.Read("chr2"), std::string("\x01\0\0\0\x10\0\0\0\x3F\0\0\0\x10\0\0\0"
                                              "\x02\0\0\0\x02\0\0\0\x07\0\0\0\x02\0\0\0",
                                              32));
}

TEST_F(CanDriverTest, SettingTheTimingTouchesNoRegister) {
    driver.SetTimeParam(1, &kTiming);
    EXPECT_EQ(core.writes, Writes{});
}

TEST_F(CanDriverTest, AnOpenSetsItsModeBitWhileTheCoreIsDisabled) {
    core.SetWord(0x00, 2);
    core.SetWord(0x04, 0x10);
    driver.OpenXilinxIpCore(); // there is no net device to raise
    EXPECT_EQ(core.writes, (Writes{{0x00, 0}, {0x04, 0x90}, {0x00, 2}}));
}

TEST_F(CanDriverTest, AnOpenLeavesADisabledCoreDisabled) {
    driver.OpenXilinxIpCore();
    EXPECT_EQ(core.writes, (Writes{{0x00, 0}, {0x04, 0x80}, {0x00, 0}}));
}

TEST_F(CanDriverTest, NetDevicesThatAreNotThereFail) {
    EXPECT_EQ(driver.OpenXilinxIpCore(), -1);
    EXPECT_EQ(driver.CloseXilinxIpCore(), -1);
    EXPECT_EQ(driver.OpenNorvaneIpCore(), -1);
    EXPECT_EQ(driver.CloseNorvaneIpCore(), -1);
    EXPECT_EQ(driver.SetSelfAckMode(1), -65282);
}

TEST_F(CanDriverTest, AControlThatCannotBeHadIsToldAndGivesItsError) {
    testing::internal::CaptureStdout();
    const int result = driver.GetNorvaneIpCoreControl();
    const std::string told = testing::internal::GetCapturedStdout();
    EXPECT_LT(result, 0);
    // Without CAN in the kernel the socket fails, with it the look for the device.
    const std::string error = std::to_string(-result) + "\n";
    EXPECT_TRUE(told == "socket failed: " + error || told == "ioctl failed: " + error) << told;
    EXPECT_LT(driver.NorvaneCanNetFd(), 0);
}

TEST_F(CanDriverTest, AReleaseOfNoControlSucceeds) {
    EXPECT_EQ(driver.ReleaseNorvaneIpControl(), 0);
}

TEST_F(CanDriverTest, ACloseCancelsWhatWaitsToBeSent) {
    driver.CloseXilinxIpCore();
    EXPECT_EQ(core.writes, (Writes{{0x98, 0xFFFFFFFF}}));
}

TEST_F(CanDriverTest, ConfigurationModeClearsTheEnableBitAlone) {
    core.SetWord(0x00, 0xFFFFFFFF);
    EXPECT_EQ(driver.SetXilinxCanIpConfigMode(), 0);
    EXPECT_EQ(core.Word(0x00), 0xFFFFFFFDU);
}

TEST_F(CanDriverTest, AResetRestoresTheEnableBit) {
    Answer();
    core.SetWord(0x00, 2);
    EXPECT_EQ(driver.SetXilinxCanIpReset(), 0);
    EXPECT_EQ(core.writes, (Writes{{0x00, 0}, {0x00, 1}, {0x00, 3}}));
}

TEST_F(CanDriverTest, AResetWaitsForConfigurationMode) {
    int reads = 0;
    core.afterRead = [&](uint32_t offset) {
        if (offset == 0x18 && ++reads == 3) {
            Answer();
        }
    };
    EXPECT_EQ(driver.SetXilinxCanIpReset(), 0);
    EXPECT_EQ(reads, 4);
}

TEST_F(CanDriverTest, AResetWithoutEndIsGivenUpAfter101WaitsAndLeavesTheCoreDisabled) {
    core.SetWord(0x00, 2);
    int reads = 0;
    core.afterRead = [&](uint32_t offset) { reads += offset == 0x18 ? 1 : 0; };
    testing::internal::CaptureStdout();
    EXPECT_EQ(driver.SetXilinxCanIpReset(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Set Controller Reset Error ! \n");
    EXPECT_EQ(reads, 102); // one before the first wait
    EXPECT_EQ(core.Word(0x00) & 2, 0U);
}

TEST_F(CanDriverTest, ListenModeResetsAndProgramsAnFdCoreInThisOrder) {
    Answer();
    core.SetWord(0x00, 2);
    driver.SetTimeParam(1, &kTiming);
    EXPECT_EQ(driver.SetControllerMode(2), 0);
    EXPECT_EQ(core.writes, (Writes{
                               {0x00, 0},          // enable off
                               {0x00, 1},          // reset
                               {0x00, 3},          // enable as it was
                               {0x00, 1},          // enable off
                               {0x08, 0},          // nominal prescaler
                               {0x0C, 0x000F0000}, // jump width
                               {0x0C, 0x000F003E}, // segment 1
                               {0x0C, 0x000F0F3E}, // segment 2
                               {0x88, 1},          // data prescaler
                               {0x8C, 0x00010000}, // jump width
                               {0x8C, 0x00010006}, // segment 1
                               {0x8C, 0x00010106}, // segment 2
                               {0x20, 0x20F52},    // interrupts
                               {0xE0, 1},          //
                               {0x04, 4},          // listen only
                               {0x00, 3},          // enable as it was
                           }));
}

TEST_F(CanDriverTest, ListenModeLeavesTheDataTimingOfAClassicChannel) {
    Answer();
    driver.SetTimeParam(0, &kTiming);
    driver.SetControllerMode(2);
    for (const auto& [offset, value] : core.writes) {
        EXPECT_TRUE(offset != 0x88 && offset != 0x8C) << value;
    }
    EXPECT_EQ(core.Word(0x0C), 0x000F0F3EU);
}

TEST_F(CanDriverTest, ListenModeGoesOnAfterAResetThatFailed) {
    driver.SetTimeParam(0, &kTiming);
    EXPECT_EQ(driver.SetControllerMode(2), 0);
    EXPECT_EQ(core.Word(0x04), 4U);
    EXPECT_EQ(core.Word(0x20), 0x20F52U);
}

TEST_F(CanDriverTest, APrescalerOf0FloodsItsRegister) {
    Answer();
    const CanTimeParam zero{};
    driver.SetTimeParam(0, &zero);
    driver.SetControllerMode(2);
    EXPECT_EQ(core.Word(0x08), 0xFFFFFFFFU);
}

TEST_F(CanDriverTest, NormalModeClearsTheListenBitWhileTheCoreIsDisabled) {
    core.SetWord(0x00, 2);
    core.SetWord(0x04, 0x84);
    EXPECT_EQ(driver.SetControllerMode(0), 0);
    EXPECT_EQ(core.writes, (Writes{{0x00, 0}, {0x04, 0x80}, {0x00, 2}}));
}

TEST_F(CanDriverTest, AnotherModeChangesNothing) {
    EXPECT_EQ(driver.SetControllerMode(1), 0);
    EXPECT_EQ(core.writes, Writes{});
}

TEST_F(CanDriverTest, TheSecondSamplePointLeavesTheCoreEnabled) {
    core.SetWord(0x88, 0x2A05);
    EXPECT_EQ(driver.SetSecondarySamplePoint(1, 17), 0);
    EXPECT_EQ(core.writes, (Writes{{0x00, 0}, {0x88, 0x12A05}, {0x88, 0x11105}, {0x00, 2}}));
}

TEST_F(CanDriverTest, TheSecondSamplePointIsTakenAwayWithItsOffset) {
    core.SetWord(0x88, 0x11105);
    EXPECT_EQ(driver.SetSecondarySamplePoint(0, 17), 0);
    EXPECT_EQ(core.writes, (Writes{{0x00, 0}, {0x88, 0x1105}, {0x88, 0x0005}, {0x00, 2}}));
}

TEST_F(CanDriverTest, AnyOtherSecondSamplePointChangesNothing) {
    EXPECT_EQ(driver.SetSecondarySamplePoint(2, 17), 0);
    EXPECT_EQ(core.writes, Writes{});
}

TEST_F(CanDriverTest, Mode1AddsTheFirstResistorAndMode2TheSecond) {
    EXPECT_EQ(driver.SetTerminate(1), 0);
    EXPECT_EQ(shared.Word(4), 0x004U);
    EXPECT_EQ(driver.SetTerminate(2), 0);
    EXPECT_EQ(shared.Word(4), 0x104U);
    EXPECT_EQ(driver.SetTerminate(1), 0);
    EXPECT_EQ(shared.Word(4), 0x104U);
}

TEST_F(CanDriverTest, Mode0TakesBothResistorsOfTheChannelAway) {
    shared.SetWord(4, 0xFFF);
    EXPECT_EQ(driver.SetTerminate(0), 0);
    EXPECT_EQ(shared.Word(4), 0xEFBU);
}

TEST_F(CanDriverTest, AnotherTerminationIsRefused) {
    EXPECT_EQ(driver.SetTerminate(3), -1);
    EXPECT_EQ(driver.SetTerminate(-1), -1);
    EXPECT_EQ(shared.writes, Writes{});
}

TEST_F(CanDriverTest, CountersAndStatesAreFieldsOfTheirRegisters) {
    core.SetWord(0x10, 0xFFFF8812);
    core.SetWord(0x18, 0xFFFFFE7F | 2U << 7);
    shared.SetWord(0, 1U << kChannel);
    EXPECT_EQ(driver.GetTxError(), 0x12);
    EXPECT_EQ(driver.GetRxError(), 0x88);
    EXPECT_EQ(driver.GetErrorStatus(), 2);
    EXPECT_EQ(driver.GetChannelStatus(), 1);
    shared.SetWord(0, ~(1U << kChannel));
    EXPECT_EQ(driver.GetChannelStatus(), 0);
}

TEST_F(CanDriverTest, AWaitingFrameIsAnyWordInTheReceiveBuffer) {
    EXPECT_FALSE(driver.GetXilinxIpRxstatus());
    core.SetWord(0x2100, 0x80000000);
    EXPECT_TRUE(driver.GetXilinxIpRxstatus());
}

} // namespace
