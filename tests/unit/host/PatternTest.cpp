#include "vcihost/Pattern.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::optional<size_t> Mismatch(std::string_view pattern, const Bytes& bytes) {
    return Pattern::Parse(pattern).Mismatch(bytes);
}

TEST(Pattern, BytesMustBeTheSame) {
    EXPECT_EQ(Mismatch("10 0203", {0x10, 0x02, 0x03}), std::nullopt);
    EXPECT_EQ(Mismatch("10 0203", {0x10, 0x02, 0x04}), 2U);
    EXPECT_EQ(Mismatch("10 0203", {0x11, 0x02, 0x04}), 0U);
}

TEST(Pattern, LengthsMustBeTheSame) {
    EXPECT_EQ(Mismatch("1002", {0x10}), 1U);
    EXPECT_EQ(Mismatch("1002", {0x10, 0x02, 0x00}), 2U);
    EXPECT_EQ(Mismatch("1002", {}), 0U);
}

TEST(Pattern, TwoDotsAreAnyByte) {
    EXPECT_EQ(Mismatch("10..03", {0x10, 0xFF, 0x03}), std::nullopt);
    EXPECT_EQ(Mismatch("10..03", {0x10, 0xFF, 0x04}), 2U);
    EXPECT_EQ(Mismatch("10..", {0x10}), 1U);
}

TEST(Pattern, AStarAtTheEndIsAnyRest) {
    EXPECT_EQ(Mismatch("10*", {0x10}), std::nullopt);
    EXPECT_EQ(Mismatch("10 *", {0x10, 1, 2, 3}), std::nullopt);
    EXPECT_EQ(Mismatch("10*", {0x11, 1}), 0U);
    EXPECT_EQ(Mismatch("1002*", {0x10}), 1U);
    EXPECT_EQ(Mismatch("*", {}), std::nullopt);
}

TEST(Pattern, StarAndNumberRepeatsTheByteBefore) {
    EXPECT_EQ(Mismatch("10 00*3 05", {0x10, 0, 0, 0, 0x05}), std::nullopt);
    EXPECT_EQ(Mismatch("10 ..*2", {0x10, 7, 8}), std::nullopt);
    EXPECT_EQ(Mismatch("10 ..*2", {0x10, 7}), 2U);
    EXPECT_EQ(Pattern::Parse("00*66000").Exact()->size(), 66000U);
    EXPECT_EQ(Pattern::Parse("ab*1").Exact(), Bytes{0xAB});
}

TEST(Pattern, OnlyWhollyToldBytesAreExact) {
    EXPECT_EQ(Pattern::Parse("10 01").Exact(), (Bytes{0x10, 0x01}));
    EXPECT_EQ(Pattern::Parse("10 ..").Exact(), std::nullopt);
    EXPECT_EQ(Pattern::Parse("10*").Exact(), std::nullopt);
}

TEST(Pattern, OtherTextIsRefusedWithItsPlace) {
    for (const char* text : {"1", "1g", "10 0", "10 .", "10 .a", "1.", "* 10", "*3", "10 *3",
                             "10*0", "10**", "10*2*2x", "00*99999999999", "00*33554433"}) {
        EXPECT_THROW(Pattern::Parse(text), HexError) << text;
    }
    try {
        Pattern::Parse("10 zz");
        FAIL();
    } catch (const HexError& error) {
        EXPECT_STREQ(error.what(), "character 4: 'zz' is no byte of two hex digits");
    }
}

} // namespace
