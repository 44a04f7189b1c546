#include "hal/RegBlock.h"

#include "doubles/MemoryBoard.h"

#include <gtest/gtest.h>

namespace {

constexpr size_t kSize = 64;

TEST(RegBlock, OffsetIsAcceptedUpToSizeMinusFour) {
    MemoryRegAccess block(kSize);
    uint32_t value = 0;
    EXPECT_EQ(block.Write(kSize - 4, 0x12345678), 0);
    EXPECT_EQ(block.Read(kSize - 4, value), 0);
    EXPECT_EQ(value, 0x12345678U);
    EXPECT_EQ(block.Write(kSize - 3, 1), -1);
    EXPECT_EQ(block.Read(kSize - 3, value), -1);
    EXPECT_EQ(block.Write(0xFFFFFFFF, 1), -1);
    EXPECT_EQ(block.WriteRegion(kSize - 3, 0, 7, 1), -1);
    EXPECT_EQ(block.ReadRegion(kSize - 3, 0, 7, value), -1);
    bool bit = false;
    EXPECT_EQ(block.WriteBit(kSize - 3, 0, true), -1);
    EXPECT_EQ(block.ReadBit(kSize - 3, 0, bit), -1);
}

TEST(RegBlock, WriteBitChangesThatBitAlone) {
    MemoryRegAccess block(kSize);
    block.SetWord(8, 0xF0F0F0F0);
    EXPECT_EQ(block.WriteBit(8, 0, true), 0);
    EXPECT_EQ(block.Word(8), 0xF0F0F0F1U);
    EXPECT_EQ(block.WriteBit(8, 31, false), 0);
    EXPECT_EQ(block.Word(8), 0x70F0F0F1U);
    EXPECT_EQ(block.WriteBit(8, 32, true), -1);
    EXPECT_EQ(block.Word(8), 0x70F0F0F1U);
}

TEST(RegBlock, ReadBitReportsMinusThreeWithTheBitStored) {
    MemoryRegAccess block(kSize);
    block.SetWord(4, 0x80000001);
    bool bit = false;
    EXPECT_EQ(block.ReadBit(4, 31, bit), -3);
    EXPECT_TRUE(bit);
    EXPECT_EQ(block.ReadBit(4, 30, bit), -3);
    EXPECT_FALSE(bit);
    EXPECT_EQ(block.ReadBit(4, 32, bit), -1);
}

TEST(RegBlock, WriteRegionKeepsTheNeighbours) {
    MemoryRegAccess block(kSize);
    block.SetWord(0, 0xFFFFFFFF);
    EXPECT_EQ(block.WriteRegion(0, 8, 15, 0x5A), 0);
    EXPECT_EQ(block.Word(0), 0xFFFF5AFFU);
}

TEST(RegBlock, RegionsBackToFrontOrPastBit31AreRefused) {
    MemoryRegAccess block(kSize);
    uint32_t value = 0;
    EXPECT_EQ(block.WriteRegion(0, 8, 7, 1), -4);
    EXPECT_EQ(block.WriteRegion(0, 0, 32, 1), -4);
    EXPECT_EQ(block.ReadRegion(0, 8, 7, value), -4);
    EXPECT_EQ(block.ReadRegion(0, 0, 32, value), -4);
    EXPECT_TRUE(block.writes.empty());
}

TEST(RegBlock, WriteRegionSpillsAValueWiderThanItsField) {
    MemoryRegAccess block(kSize);
    EXPECT_EQ(block.WriteRegion(0, 0, 7, 0x1FF), 0);
    EXPECT_EQ(block.Word(0), 0x1FFU);
}

TEST(RegBlock, WriteRegionUpToBit31OrsIntoTheOldField) {
    MemoryRegAccess block(kSize);
    block.SetWord(0, 0xA0000000);
    EXPECT_EQ(block.WriteRegion(0, 28, 31, 0x5), 0);
    EXPECT_EQ(block.Word(0), 0xF0000000U);
}

TEST(RegBlock, ReadRegionTakesTheField) {
    MemoryRegAccess block(kSize);
    block.SetWord(0, 0x00005A00);
    uint32_t value = 0;
    EXPECT_EQ(block.ReadRegion(0, 8, 15, value), 0);
    EXPECT_EQ(value, 0x5AU);
}

TEST(RegBlock, ReadRegionUpToBit31ReadsAsZero) {
    MemoryRegAccess block(kSize);
    block.SetWord(0, 0xFFFFFFFF);
    uint32_t value = 99;
    EXPECT_EQ(block.ReadRegion(0, 16, 31, value), 0);
    EXPECT_EQ(value, 0U);
}

} // namespace
