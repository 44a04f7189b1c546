#include "vcihost/LinRequest.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

// gid 6, sid 10, channel, state, bit rate, version, supply.
TEST(LinRequest, OpenAndClose) {
    EXPECT_EQ(ToHex(LinOpenRequest(0, {19200, 2, LinSupply::Internal})), "060a0001004b0200");
    EXPECT_EQ(ToHex(LinOpenRequest(1, {65535, 4, LinSupply::External})), "060a0101ffff0401");
    EXPECT_EQ(ToHex(LinCloseRequest(1)), "060a010000000000");
}

TEST(LinRequest, OneByteOfAChannel) {
    EXPECT_EQ(ToHex(LinRoleRequest(0, true)), "06020001");
    EXPECT_EQ(ToHex(LinRoleRequest(1, false)), "06020100");
    EXPECT_EQ(ToHex(LinClearRequest(0, LinClear::Table)), "06050000");
    EXPECT_EQ(ToHex(LinClearRequest(0, LinClear::Responses)), "06050001");
    EXPECT_EQ(ToHex(LinClearRequest(1, LinClear::All)), "06050102");
    EXPECT_EQ(ToHex(LinScheduleRequest(0, true)), "06060001");
    EXPECT_EQ(ToHex(LinScheduleRequest(1, false)), "06060100");
}

// Channel, count, then identifier, length, slot of each entry.
TEST(LinRequest, Table) {
    const LinSlot table[] = {{0x10, 2, 10}, {0x3C, 8, 65535}};
    EXPECT_EQ(ToHex(LinTableRequest(1, table)), "06010102"
                                                "10020a00"
                                                "3c08ffff");
    const std::vector<LinSlot> full(255, LinSlot{0x3F, 8, 1});
    const Bytes request = LinTableRequest(0, full);
    EXPECT_EQ(request.size(), 4U + 255 * 4);
    EXPECT_EQ(request[3], 255);
    const std::vector<LinSlot> tooLong(256, LinSlot{});
    EXPECT_THROW(LinTableRequest(0, tooLong), std::invalid_argument);
}

// Data always take eight bytes.
TEST(LinRequest, Responses) {
    const LinFrame responses[] = {ParseLinFrame("10#1122"), ParseLinFrame("3f#0102030405060708")};
    EXPECT_EQ(ToHex(LinResponseRequest(0, responses)), "06030002"
                                                       "10021122000000000000"
                                                       "3f080102030405060708");
    const uint8_t ids[] = {0x10, 0x3F};
    EXPECT_EQ(ToHex(LinResponseDeleteRequest(1, ids)), "06040102103f");
}

TEST(LinRequest, AFrameThatIsSentWithoutMuchAdo) {
    LinMessage message;
    message.frame = ParseLinFrame("10#1122");
    EXPECT_EQ(ToHex(LinSendRequest(1, message)), "0607"
                                                 "01"   // channel
                                                 "01"   // with response
                                                 "00"   // not used
                                                 "02"   // length
                                                 "55"   // sync
                                                 "00"   // inter-byte
                                                 "50"   // PID of 10
                                                 "0d01" // break and delimiter
                                                 "1122000000000000"
                                                 "000000000000000000"
                                                 "00000000"
                                                 "00000000");
}

TEST(LinRequest, AHeaderAloneWithAllItsTimes) {
    LinMessage message;
    message.frame = ParseLinFrame("3d#R4");
    message.pid = 0xFD;
    message.sync = 0x54;
    message.interByte = 63;
    message.breakLength = 20;
    message.breakDelimiter = 2;
    message.spaces = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    message.headerRate = 19200;
    message.responseRate = 0x01020304;
    EXPECT_EQ(ToHex(LinSendRequest(0, message)), "0607"
                                                 "00"
                                                 "00"
                                                 "00"
                                                 "04"
                                                 "54"
                                                 "3f"
                                                 "fd"
                                                 "1402"
                                                 "0000000000000000"
                                                 "010203040506070809"
                                                 "004b0000"
                                                 "04030201");
}

// One byte behind the length: the device refuses a shorter request.
TEST(LinRequest, SleepAndWake) {
    EXPECT_EQ(ToHex(LinSleepRequest(0)), "0608000000000000000000");
    EXPECT_EQ(ToHex(LinWakeRequest(1, {3, 150, 258})), "0608010001039600020100");
}

TEST(LinRequest, Disturb) {
    EXPECT_EQ(ToHex(LinDisturbRequest(0, {})), "06090000000000000000000000");
    LinDisturb disturb;
    disturb.on = true;
    disturb.id = 0x10;
    disturb.type = 2;
    disturb.length = 3;
    disturb.offset = 4;
    disturb.field = 5;
    disturb.times = 258;
    EXPECT_EQ(ToHex(LinDisturbRequest(1, disturb)), "06090101011002030405010201");
}

} // namespace
