#include "utils/WireFormat.h"

#include <array>

#include <gtest/gtest.h>

namespace {

TEST(WireWriter, WritesLittleEndianFieldsInOrder) {
    std::array<uint8_t, 16> room{};
    const std::array<uint8_t, 1> last{0xEE};
    WireWriter writer(room);
    writer.U8(1).U16(0x0302).U32(0x07060504).U64(0x0F0E0D0C0B0A0908).Bytes(last);
    EXPECT_TRUE(writer.ok());
    EXPECT_EQ(writer.Size(), 16U);
    EXPECT_EQ(room,
              (std::array<uint8_t, 16>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0xEE}));
}

TEST(WireWriter, LeavesOutWhatDoesNotFitAndAllThatFollows) {
    std::array<uint8_t, 4> room{};
    WireWriter writer(room);
    writer.U8(1).U32(0xFFFFFFFF).U8(2);
    EXPECT_FALSE(writer.ok());
    EXPECT_EQ(writer.Size(), 1U);
    EXPECT_EQ(room, (std::array<uint8_t, 4>{1, 0, 0, 0}));
}

TEST(WireReader, ReadsLittleEndianFieldsInOrder) {
    const std::array<uint8_t, 16> bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    WireReader reader(bytes);
    EXPECT_EQ(reader.U8(), 1);
    EXPECT_EQ(reader.U16(), 0x0302);
    EXPECT_EQ(reader.U32(), 0x07060504U);
    EXPECT_EQ(reader.U64(), 0x0F0E0D0C0B0A0908U);
    EXPECT_EQ(reader.Left(), 1U);
    reader.Skip(1);
    EXPECT_TRUE(reader.ok());
}

TEST(WireReader, YieldsZeroPastTheEndAndStaysFailed) {
    const std::array<uint8_t, 3> bytes{1, 2, 3};
    WireReader reader(bytes);
    EXPECT_EQ(reader.U32(), 0U);
    EXPECT_FALSE(reader.ok());
    EXPECT_EQ(reader.U8(), 0);
    EXPECT_TRUE(reader.Bytes(1).empty());
    EXPECT_FALSE(reader.ok());
}

} // namespace
