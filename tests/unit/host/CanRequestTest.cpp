#include "vcihost/CanRequest.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

BitTiming Phase(uint8_t brp, uint8_t sjw, uint8_t seg1, uint8_t seg2) {
    BitTiming timing;
    timing.brp = brp;
    timing.sjw = sjw;
    timing.seg1 = seg1;
    timing.seg2 = seg2;
    return timing;
}

// gid 21, sid 41, channel + 8, type, listen, then brp, sjw, seg1, seg2 of each phase.
TEST(CanRequest, TimingOfAClassicChannel) {
    CanTiming timing;
    timing.nominal = Phase(1, 10, 69, 10);
    EXPECT_EQ(ToHex(CanTimingRequest(0, timing)), "1529080000010a450a00000000");
    timing.listen = true;
    EXPECT_EQ(ToHex(CanTimingRequest(5, timing)), "15290d0001010a450a00000000");
}

TEST(CanRequest, TimingOfACanFdChannel) {
    CanTiming timing;
    timing.nominal = Phase(255, 128, 254, 127);
    timing.data = Phase(2, 3, 14, 5);
    EXPECT_EQ(ToHex(CanTimingRequest(2, timing)), "15290a0100ff80fe7f02030e05");
}

TEST(CanRequest, WhatElseIsSetOfAChannel) {
    EXPECT_EQ(ToHex(CanSecondPointRequest(1, 63)), "152a09013f");
    EXPECT_EQ(ToHex(CanSecondPointRequest(1, std::nullopt)), "152a090000");
    EXPECT_EQ(ToHex(CanTerminationRequest(0, 2)), "152b0802");
    EXPECT_EQ(ToHex(CanStatusRequest(3, true)), "152c0b01");
    EXPECT_EQ(ToHex(CanStatusRequest(3, false)), "152c0b00");
    EXPECT_EQ(ToHex(CanModeRequest(4, true)), "152d0c01");
    EXPECT_EQ(ToHex(CanModeRequest(4, false)), "152d0c00");
}

// Identifier word, flags (DLC code, 0x20 remote or rate switch, 0x40 CAN FD), data.
TEST(CanRequest, ABurst) {
    const CanFrame frames[] = {ParseCanFrame("123#DEADBEEF"), ParseCanFrame("1ABCDEF0#R2"),
                               ParseCanFrame("7FF##1000102030405060708090A0B"),
                               ParseCanFrame("001##0")};
    const auto requests = CanBurstRequests(0, frames);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(ToHex(requests[0]), "16340804"
                                  "2301000004deadbeef"
                                  "f0debc9a220000" // two bytes that the device drops
                                  "ff07000069000102030405060708090a0b"
                                  "0100000040");
}

TEST(CanRequest, PeriodicFramesAndStops) {
    const CanPeriodic entries[] = {{ParseCanFrame("123#11"), 10},
                                   {ParseCanFrame("00000123##1AABB"), 65535},
                                   {ParseCanId("124#R"), 0},
                                   {ParseCanId("125##"), 0}};
    const auto requests = CanPeriodicRequests(5, entries);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(ToHex(requests[0]), "16330d04"
                                  "230100000a000111"
                                  "23010080ffff62aabb"
                                  "24010000000020"
                                  "25010000000040");
}

TEST(CanRequest, ASingleFrameHasNoCount) {
    EXPECT_EQ(ToHex(CanSilentRequest(3, ParseCanFrame("123#DEADBEEF"))),
              "16350b2301000004deadbeef");
}

TEST(CanRequest, MoreThanTheCountByteTellsGoInSeveralRequests) {
    EXPECT_TRUE(CanBurstRequests(0, {}).empty());
    std::vector<CanFrame> frames(511, ParseCanFrame("123#11"));
    frames[255] = ParseCanFrame("124#22");
    const auto requests = CanBurstRequests(1, frames);
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].size(), 4U + 255 * 6);
    EXPECT_EQ(ToHex(std::span(requests[0]).first(10)), "163409ff230100000111");
    EXPECT_EQ(ToHex(std::span(requests[1]).first(10)), "163409ff240100000122");
    EXPECT_EQ(ToHex(requests[2]), "16340901230100000111");
    const std::vector<CanPeriodic> entries(256, CanPeriodic{ParseCanFrame("123#11"), 1});
    EXPECT_EQ(CanPeriodicRequests(1, entries).size(), 2U);
}

TEST(CanRequest, ALengthWithoutADlcCodeIsAMistakeOfTheCaller) {
    CanFrame frame;
    frame.fd = true;
    frame.data.resize(9);
    EXPECT_THROW(CanSilentRequest(0, frame), std::invalid_argument);
}

TEST(CanRequest, FramesAreReadAsTheDeviceReadsThem) {
    // Bits 29 and 30 of the word, and bits 11 to 28 of a standard identifier, are dropped.
    const Bytes bytes = ParseHex("23f9ff7f 0a00 b1 55");
    WireReader reader(bytes);
    uint16_t periodMs = 0;
    const CanFrame frame = ReadCanFrame(reader, &periodMs);
    EXPECT_TRUE(reader.ok());
    EXPECT_EQ(periodMs, 10);
    EXPECT_EQ(frame.id, 0x123U);
    EXPECT_FALSE(frame.extended);
    EXPECT_TRUE(frame.remote);
    EXPECT_EQ(frame.requested, 1);
}

} // namespace
