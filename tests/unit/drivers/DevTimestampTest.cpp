#include "drivers/DevTimestamp.h"

#include "doubles/MemoryBoard.h"

#include <cstring>

#include <gtest/gtest.h>

namespace {

class DevTimestampTest : public testing::Test {
  protected:
    DevTimestampTest() { board.Reset(); }

    MemoryBoard& board = MemoryBoard::Instance();
};

TEST_F(DevTimestampTest, IsOneObject) {
    EXPECT_EQ(Drivers::DevTimestamp::GetInstance(), Drivers::DevTimestamp::GetInstance());
}

TEST_F(DevTimestampTest, CountsTenNanosecondsATick) {
    board.SetCounter(0xFFFFFFFF);
    EXPECT_EQ(Drivers::DevTimestamp().GetTimestamp(), 42949672950U);
    board.SetCounter(0x100000000);
    EXPECT_EQ(Drivers::DevTimestamp().GetTimestamp(), 42949672960U);
}

TEST_F(DevTimestampTest, ReadsTheLowWordFirstAndDoesNotMindACarryBehindIt) {
    board.SetCounter(0xFFFFFFFF);
    board.Registers(0x81000000).afterRead = [this](uint32_t) { board.SetCounter(0x100000000); };
    EXPECT_EQ(Drivers::DevTimestamp().GetTimestamp(), 0x1FFFFFFFF * 10);
}

TEST_F(DevTimestampTest, WritesEightBytesLeastSignificantFirst) {
    board.SetCounter(0x00123456789ABCDE / 2);
    uint8_t bytes[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0xEE};
    Drivers::DevTimestamp().GetTimestamp(bytes);
    // 0x00091A2B3C4D5E6F * 10
    const uint8_t expected[9] = {0x56, 0xB0, 0x05, 0x5B, 0xB0, 0x05, 0x5B, 0x00, 0xEE};
    EXPECT_EQ(std::memcmp(bytes, expected, 9), 0);
}

} // namespace
