#include "vcihost/DeviceTime.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

TEST(DeviceTime, IsWrittenInSecondsToTheNanosecond) {
    EXPECT_EQ(TimeText(0), "0.000000000 s");
    EXPECT_EQ(TimeText(42949672950), "42.949672950 s");
    EXPECT_EQ(TimeText(18446744073709551615U), "18446744073.709551615 s");
}

TEST(DeviceTime, RequestsOfTheGroup) {
    EXPECT_EQ(ToHex(SyncRequest()), "1001");
    EXPECT_EQ(ToHex(SyncFollowUp(0x0102030405060708)), "10020807060504030201");
    EXPECT_EQ(ToHex(SetSyncNode(true)), "100301");
    EXPECT_EQ(ToHex(SetSyncNode(false)), "100300");
    EXPECT_EQ(ToHex(SetSyncState(true)), "10040101");
    EXPECT_EQ(ToHex(SetSyncState(false)), "10040100");
}

TEST(DeviceTime, IsLeastSignificantByteFirstInAnAnswer) {
    const Bytes bytes = ParseHex("00 0a000000 10 01 f6ffffff09000000 deadbeef 0000000000");
    EXPECT_EQ(TimeInAnswer(*ParseMessage(bytes)), 42949672950U);
}

TEST(DeviceTime, OtherMessagesHaveNone) {
    const Bytes other = ParseHex("00 0a000000 68 01 f6ffffff09000000 00000000 0000000000");
    EXPECT_EQ(TimeInAnswer(*ParseMessage(other)), std::nullopt);
    const Bytes bare = ParseHex("00 02000000 10 01 00000000 0000000000");
    EXPECT_EQ(TimeInAnswer(*ParseMessage(bare)), std::nullopt);
}

} // namespace
