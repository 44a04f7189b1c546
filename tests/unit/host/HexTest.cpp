#include "vcihost/Hex.h"

#include <limits>

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::string ErrorOf(std::string_view text) {
    try {
        ParseHex(text);
    } catch (const HexError& error) {
        return error.what();
    }
    return "none";
}

TEST(Hex, ReadsBothCases) {
    EXPECT_EQ(ParseHex("00aAFf10"), (Bytes{0x00, 0xAA, 0xFF, 0x10}));
}

TEST(Hex, BlanksMayStandBetweenBytes) {
    EXPECT_EQ(ParseHex(" 10 01\t02\n03\r\n"), (Bytes{0x10, 0x01, 0x02, 0x03}));
}

TEST(Hex, EmptyTextGivesNoBytes) {
    EXPECT_EQ(ParseHex(""), Bytes{});
    EXPECT_EQ(ParseHex("  "), Bytes{});
}

TEST(Hex, OddCountIsRefusedWithItsPlace) {
    EXPECT_EQ(ErrorOf("100"),
              "odd number of hex digits: the byte at character 3 has only one digit");
    EXPECT_EQ(ErrorOf("1"), "odd number of hex digits: the byte at character 1 has only one digit");
}

TEST(Hex, AByteIsNotSplitByABlank) {
    EXPECT_EQ(ErrorOf("1 001"),
              "odd number of hex digits: the byte at character 1 has only one digit");
}

TEST(Hex, OtherCharactersAreRefusedWithTheirPlace) {
    EXPECT_EQ(ErrorOf("10g1"), "character 3 ('g') is not a hex digit");
    EXPECT_EQ(ErrorOf("101-"), "character 4 ('-') is not a hex digit");
    EXPECT_EQ(ErrorOf("0x10"), "character 2 ('x') is not a hex digit");
    EXPECT_EQ(ErrorOf("10\xC3\xA4"), "character 3 (code 0xc3) is not a hex digit");
    EXPECT_EQ(ErrorOf(std::string_view("1\0", 2)), "character 2 (code 0x00) is not a hex digit");
}

TEST(Hex, WritesLowercaseWithoutBlanks) {
    EXPECT_EQ(ToHex(Bytes{0x00, 0xAB, 0x0F, 0xF0}), "00ab0ff0");
    EXPECT_EQ(ToHex(Bytes{}), "");
}

TEST(Hex, WritesBlanksBetweenBytesWhenAsked) {
    EXPECT_EQ(ToSpacedHex(Bytes{0x10, 0x01, 0xFF}), "10 01 ff");
    EXPECT_EQ(ToSpacedHex(Bytes{}), "");
}

TEST(Number, IsDecimalOr0x) {
    EXPECT_EQ(ParseNumber("0", 10), 0U);
    EXPECT_EQ(ParseNumber("010", 10), 10U); // a leading zero does not make it octal
    EXPECT_EQ(ParseNumber("0x1F", 31), 31U);
    EXPECT_EQ(ParseNumber("0X1f", 31), 31U);
    EXPECT_EQ(ParseNumber("18446744073709551615", std::numeric_limits<uint64_t>::max()),
              18446744073709551615U);
}

TEST(Number, AboveTheLimitOrNotANumberIsNothing) {
    for (const char* text : {"11", "0x0B", "", "0x", "-1", "+1", " 1", "1 ", "1.5", "ten", "0x-1",
                             "18446744073709551616"}) {
        EXPECT_EQ(ParseNumber(text, 10), std::nullopt) << text;
    }
}

} // namespace
