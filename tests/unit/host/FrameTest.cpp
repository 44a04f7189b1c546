#include "vcihost/Frame.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

TEST(Frame, TheShortestRequestHas16Bytes) {
    EXPECT_EQ(BuildFrame(Bytes{0x10, 0x01}, 0x11223344),
              (Bytes{0x00, 0x02, 0x00, 0x00, 0x00, 0x10, 0x01, 0x44, 0x33, 0x22, 0x11, 0x00, 0x00,
                     0x00, 0x00, 0x00}));
}

TEST(Frame, TheTailFillsUpToAMultipleOfFour) {
    EXPECT_EQ(BuildFrame(Bytes{0x10, 0x03, 0x01}, 1),
              (Bytes{0x00, 0x03, 0x00, 0x00, 0x00, 0x10, 0x03, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00,
                     0x00, 0x00, 0x00}));
    EXPECT_EQ(BuildFrame(Bytes{0x10, 0x02, 1, 2, 3, 4, 5, 6, 7, 8}, 0xAABBCCDD),
              (Bytes{0x00, 0x0A, 0x00, 0x00, 0x00, 0x10, 0x02, 1,    2,    3,    4,    5,
                     6,    7,    8,    0xDD, 0xCC, 0xBB, 0xAA, 0x00, 0x00, 0x00, 0x00, 0x00}));
}

TEST(Frame, LengthsFollowTheServiceLength) {
    const std::pair<size_t, size_t> lengths[] = {
        {0, 12},  {1, 12},  {2, 16},        {5, 16},        {6, 20},
        {10, 24}, {18, 32}, {65989, 66000}, {65990, 66004}, {66001, 66012}};
    for (const auto& [service, frame] : lengths) {
        EXPECT_EQ(BuildFrame(Bytes(service)).size(), frame) << service;
    }
}

TEST(Frame, TheLongestServiceSectionFillsTheLongestRequest) {
    EXPECT_EQ(kLongestService, 65989U);
    EXPECT_EQ(BuildFrame(Bytes(kLongestService)).size(), kReqMsgSize);
    EXPECT_GT(BuildFrame(Bytes(kLongestService + 1)).size(), kReqMsgSize);
}

TEST(Frame, TheLengthFieldIsLittleEndian) {
    const Bytes frame = BuildFrame(Bytes(0x010203, 0xEE));
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 6), (Bytes{0x00, 0x03, 0x02, 0x01, 0x00, 0xEE}));
}

TEST(Frame, NoServiceSectionMakesTwelveZeroBytes) {
    EXPECT_EQ(BuildFrame({}), Bytes(12));
}

TEST(Message, PartsAreTakenFromTheServiceSectionOnly) {
    // The time answer, with the rest of an older, longer message behind it.
    const Bytes bytes = ParseHex("00 0a000000 10 01 0102030405060708 deadbeef a1a2a3a4a5");
    const auto message = ParseMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->gid, 0x10);
    EXPECT_EQ(message->sid, 0x01);
    EXPECT_EQ(ToHex(message->service), "10010102030405060708");
    EXPECT_EQ(ToHex(message->payload), "0102030405060708");
    EXPECT_EQ(message->whole.size(), 24U);
}

TEST(Message, TheShortestHasNoPayload) {
    const Bytes bytes = ParseHex("00 02000000 15 07 ffffffff ffffffffff");
    const auto message = ParseMessage(bytes);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->gid, 21);
    EXPECT_EQ(message->sid, 7);
    EXPECT_TRUE(message->payload.empty());
}

TEST(Message, ShorterThan16BytesIsNone) {
    for (size_t size = 0; size < 16; ++size) {
        std::string fault;
        EXPECT_FALSE(ParseMessage(Bytes(size, 0x02), &fault)) << size;
        EXPECT_EQ(fault, "too short, " + std::to_string(size) + " of at least 16 bytes");
    }
}

TEST(Message, ALengthFieldThatDisagreesIsToldBothWays) {
    std::string fault;
    EXPECT_FALSE(ParseMessage(ParseHex("00 06000000 1001 000000000000000000"), &fault));
    EXPECT_EQ(fault, "16 bytes, but service length 6 makes a frame of 20");
    EXPECT_FALSE(ParseMessage(ParseHex("00 02000000 1001 00000000000000000000000000"), &fault));
    EXPECT_EQ(fault, "20 bytes, but service length 2 makes a frame of 16");
}

TEST(Message, ALengthNear32BitsDoesNotWrap) {
    std::string fault;
    EXPECT_FALSE(ParseMessage(ParseHex("00 ffffffff 1001 000000000000000000"), &fault));
    EXPECT_EQ(fault, "16 bytes, but service length 4294967295 makes a frame of 4294967308");
    EXPECT_FALSE(ParseMessage(ParseHex("00 f5ffffff 1001 000000000000000000"), &fault));
    EXPECT_EQ(fault, "16 bytes, but service length 4294967285 makes a frame of 4294967296");
}

TEST(Message, AServiceLengthBelowTwoHasNoGidAndSid) {
    std::string fault;
    EXPECT_FALSE(ParseMessage(ParseHex("00 01000000 1001 000000000000000000"), &fault));
    EXPECT_EQ(fault, "service length 1 leaves no room for gid and sid");
}

TEST(Message, ALeadingByteOtherThanZeroIsNone) {
    std::string fault;
    EXPECT_FALSE(ParseMessage(ParseHex("7f 02000000 1001 000000000000000000"), &fault));
    EXPECT_EQ(fault, "leading byte 0x7f is not 0");
}

TEST(Request, PartsIncludeTheHandle) {
    const Bytes bytes = ParseHex("00 03000000 10 03 01 44332211 00000000");
    const auto request = ParseRequest(bytes);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->gid, 0x10);
    EXPECT_EQ(request->sid, 0x03);
    EXPECT_EQ(ToHex(request->payload), "01");
    EXPECT_EQ(request->handle, 0x11223344U);
}

TEST(Request, TheLeadingByteIsIgnored) {
    EXPECT_TRUE(ParseRequest(ParseHex("ff 02000000 1001 00000000 0000000000")));
}

TEST(Request, AFrameOfWrongLengthIsNone) {
    std::string fault;
    EXPECT_FALSE(ParseRequest(ParseHex("000102"), &fault));
    EXPECT_EQ(fault, "too short, 3 of at least 16 bytes");
}

} // namespace
