#include "drivers/DevTimeSync.h"

#include "doubles/MemoryBoard.h"

#include <gtest/gtest.h>

namespace {

using Drivers::DevTimeSync;
using Writes = std::vector<std::pair<uint32_t, int>>;
using RegWrites = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr uint32_t kGreen = 28;
constexpr uint32_t kRed = 36;

class DevTimeSyncTest : public testing::Test {
  protected:
    DevTimeSyncTest() {
        board.Reset();
        sync = std::make_unique<DevTimeSync>();
    }

    void Forget() {
        gpio.writes.clear();
        regs.writes.clear();
    }

    MemoryBoard& board = MemoryBoard::Instance();
    MemoryGpio& gpio = board.Gpio("gpiochip1");
    MemoryRegAccess& regs = board.Registers(0x82000000);
    std::unique_ptr<DevTimeSync> sync;
};

TEST_F(DevTimeSyncTest, ConstructionSetsTheTwoBoardLinesAndNoRegister) {
    EXPECT_EQ(gpio.writes, (Writes{{27, 1}, {31, 0}}));
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(DevTimeSyncTest, InitMakesAMasterWithTheLampsOff) {
    Forget();
    sync->Init();
    EXPECT_EQ(regs.writes, (RegWrites{{8, 0}})); // down already: no state is written
    EXPECT_EQ(gpio.writes, (Writes{{kRed, 1}, {kGreen, 1}}));
}

TEST_F(DevTimeSyncTest, TheModeRegisterHoldsTheInverseOfTheLowBit) {
    EXPECT_EQ(sync->SetTimeSynNodeMode(Drivers::Slave), 0);
    EXPECT_EQ(regs.Word(8), 1U);
    EXPECT_EQ(sync->SetTimeSynNodeMode(Drivers::Master), 0);
    EXPECT_EQ(regs.Word(8), 0U);
    EXPECT_EQ(sync->SetTimeSynNodeMode(static_cast<Drivers::TimeSynNodeMode>(2)), 0);
    EXPECT_EQ(regs.Word(8), 1U);
}

TEST_F(DevTimeSyncTest, UpWritesTheStateAndLightsGreen) {
    Forget();
    EXPECT_EQ(sync->SetSyncState(Drivers::SYNC_UP), 0);
    EXPECT_EQ(regs.writes, (RegWrites{{12, 1}}));
    EXPECT_EQ(gpio.writes, (Writes{{kGreen, 0}, {kRed, 1}}));
}

TEST_F(DevTimeSyncTest, ThePresentStateWritesNoRegisterAndLeavesTheLamps) {
    sync->SetSyncState(Drivers::SYNC_UP);
    Forget();
    EXPECT_EQ(sync->SetSyncState(Drivers::SYNC_UP), 0);
    EXPECT_TRUE(regs.writes.empty());
    EXPECT_TRUE(gpio.writes.empty());
}

TEST_F(DevTimeSyncTest, DownPutsBothLampsOut) {
    sync->SetSyncState(Drivers::SYNC_UP);
    Forget();
    EXPECT_EQ(sync->SetSyncState(Drivers::SYNC_DOWN), 0);
    EXPECT_EQ(regs.writes, (RegWrites{{12, 0}}));
    EXPECT_EQ(gpio.writes, (Writes{{kRed, 1}, {kGreen, 1}}));
}

TEST_F(DevTimeSyncTest, AFailedRegisterLightsRedAndLeavesTheErrorState) {
    Forget();
    regs.failWrites = true;
    EXPECT_EQ(sync->SetSyncState(Drivers::SYNC_UP), -1);
    EXPECT_EQ(gpio.writes, (Writes{{kGreen, 1}, {kRed, 0}}));
    EXPECT_LT(sync->SetTimeSynNodeMode(Drivers::Master), 0);
    regs.failWrites = false;
    EXPECT_EQ(sync->SetSyncState(Drivers::SYNC_DOWN), 0);
    EXPECT_EQ(regs.writes, (RegWrites{{12, 0}})); // down is news after an error
}

} // namespace
