#include "vcihost/LinFrame.h"

#include "vcihost/LinChannel.h"
#include "vcihost/Notation.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::string FaultOf(std::string_view text) {
    try {
        ParseLinFrame(text);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "none";
}

TEST(LinFrame, ProtectedIdentifiersOfTheStandard) {
    const std::pair<uint8_t, uint8_t> pairs[] = {
        {0x00, 0x80}, {0x01, 0xC1}, {0x02, 0x42}, {0x03, 0x03}, {0x04, 0xC4},
        {0x10, 0x50}, {0x11, 0x11}, {0x20, 0x20}, {0x2F, 0x6F}, {0x30, 0xF0},
        {0x3C, 0x3C}, {0x3D, 0x7D}, {0x3E, 0xFE}, {0x3F, 0xBF}};
    for (const auto& [id, pid] : pairs) {
        EXPECT_EQ(LinPid(id), pid) << int{id};
        EXPECT_EQ(LinIdOf(pid), id);
    }
}

TEST(LinFrame, ChecksumsOfTheStandard) {
    const Bytes data = ParseHex("4a5593e5");
    EXPECT_EQ(LinClassicChecksum(data), 0xE6);
    EXPECT_EQ(LinEnhancedChecksum(0x4A, ParseHex("5593e5")), 0xE6);
    EXPECT_EQ(LinClassicChecksum({}), 0xFF);
}

TEST(LinFrame, HeaderWithResponse) {
    const LinFrame frame = ParseLinFrame("3c#00.FF.0a");
    EXPECT_EQ(frame.id, 0x3C);
    EXPECT_FALSE(frame.headerOnly);
    EXPECT_EQ(ToHex(frame.data), "00ff0a");
    EXPECT_EQ(frame.Length(), 3);
    EXPECT_EQ(ParseLinFrame("0x1#1122334455667788").Length(), 8);
    EXPECT_EQ(ParseLinFrame("1#11").id, 1);
}

TEST(LinFrame, HeaderAlone) {
    const LinFrame frame = ParseLinFrame("10#R4");
    EXPECT_TRUE(frame.headerOnly);
    EXPECT_EQ(frame.Length(), 4);
    EXPECT_TRUE(frame.data.empty());
    EXPECT_EQ(ParseLinFrame("10#r").Length(), 8);
}

TEST(LinFrame, WhatIsNoFrameIsTold) {
    EXPECT_EQ(FaultOf("10"), "'10' is no LIN frame: there is no #; write 10#1122, or 10#R2 for a "
                             "header alone");
    for (const char* const id : {"40", "", "123", "0x", "-1", "g", "1 "}) {
        EXPECT_NE(FaultOf(std::string(id) + "#11").find("the identifier is not 00 to 3F in hex"),
                  std::string::npos)
            << id;
    }
    EXPECT_NE(FaultOf("10#").find("0 bytes, and a response has 1 to 8"), std::string::npos);
    EXPECT_NE(FaultOf("10#112233445566778899").find("9 bytes, and"), std::string::npos);
    EXPECT_NE(FaultOf("10#1").find("data: "), std::string::npos);
    for (const char* const count : {"R0", "R9", "Rx", "R-1"}) {
        EXPECT_NE(FaultOf(std::string("10#") + count).find("a response has 1 to 8 bytes"),
                  std::string::npos)
            << count;
    }
}

TEST(LinFrame, Identifiers) {
    EXPECT_EQ(ParseLinId("3F"), 0x3F);
    EXPECT_EQ(ParseLinId("0xa"), 10);
    EXPECT_EQ(LinIdText(10), "0A");
    try {
        ParseLinId("64");
        FAIL();
    } catch (const NotationError& error) {
        EXPECT_STREQ(error.what(), "'64' is no LIN identifier; write 00 to 3F, in hex");
    }
}

TEST(LinChannel, NamesNumbersAndCodes) {
    for (const char* const text : {"lin0", "0", "50"}) {
        EXPECT_EQ(ParseLinChannel(text), 0) << text;
    }
    for (const char* const text : {"lin1", "1", "51"}) {
        EXPECT_EQ(ParseLinChannel(text), 1) << text;
    }
    for (const char* const text : {"lin2", "2", "52", "can0", "", "LIN0"}) {
        EXPECT_THROW(ParseLinChannel(text), NotationError) << text;
    }
}

TEST(LinChannel, BitRatesAreWholeAndFitTheRequest) {
    EXPECT_EQ(ParseLinBitRate("--bitrate", "19200"), 19200);
    EXPECT_EQ(ParseLinBitRate("--bitrate", "10.4k"), 10400);
    EXPECT_EQ(ParseLinBitRate("--bitrate", "65535"), 65535);
    for (const char* const text : {"65536", "9600.5", "0", "fast", ""}) {
        EXPECT_THROW(ParseLinBitRate("--bitrate", text), NotationError) << text;
    }
}

} // namespace
