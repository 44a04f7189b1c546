#include "common/Config.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

namespace {

TEST(Config, UcharToUintIsLittleEndian) {
    unsigned char bytes[] = {0x78, 0x56, 0x34, 0xF2};
    EXPECT_EQ(UcharToUint(bytes), 0xF2345678U);
}

TEST(Config, FrameLengthIsServiceLengthPlusElevenRoundedUpToFour) {
    EXPECT_EQ(serviceLenToMsgLen(0), 12U);
    EXPECT_EQ(serviceLenToMsgLen(2), 16U);
    EXPECT_EQ(serviceLenToMsgLen(5), 16U);
    EXPECT_EQ(serviceLenToMsgLen(6), 20U);
    EXPECT_EQ(serviceLenToMsgLen(10), 24U);
    EXPECT_EQ(serviceLenToMsgLen(18), 32U);
}

TEST(Config, FrameLengthWrapsIn32Bits) {
    EXPECT_EQ(serviceLenToMsgLen(0xFFFFFFF5), 0U);
    EXPECT_EQ(serviceLenToMsgLen(0xFFFFFFF6), 4U);
    EXPECT_EQ(serviceLenToMsgLen(0xFFFFFFF1), 0xFFFFFFFCU);
    EXPECT_EQ(serviceLenToMsgLen(0xFFFFFFFF), 12U);
}

TEST(Config, GetIpStrJoinsFourBytes) {
    const unsigned char bytes[] = {192, 168, 0, 255};
    EXPECT_EQ(GetIpStr(bytes), "192.168.0.255");
    EXPECT_EQ(GetIpStr(nullptr), "");
}

TEST(Config, CheckSubNetWantsContiguousOnes) {
    EXPECT_TRUE(CheckSubNet(htonl(0xFFFFFF00)));
    EXPECT_TRUE(CheckSubNet(htonl(0xFFFFFFFF)));
    EXPECT_TRUE(CheckSubNet(0));
    EXPECT_TRUE(CheckSubNet(htonl(0x80000000)));
    EXPECT_FALSE(CheckSubNet(htonl(0xFFFF00FF)));
    EXPECT_FALSE(CheckSubNet(htonl(0x00FFFFFF)));
}

TEST(Config, ConvertMaskToPrefixCountsOnes) {
    EXPECT_EQ(ConvertMaskToPrefix(0xFFFFFF00), "24");
    EXPECT_EQ(ConvertMaskToPrefix(0), "0");
    EXPECT_EQ(ConvertMaskToPrefix(0xFFFFFFFF), "32");
}

TEST(Config, IsSameSubnetComparesUnderTheMask) {
    EXPECT_TRUE(IsSameSubnet(0xC0A80001, 0xC0A800FE, 0xFFFFFF00));
    EXPECT_FALSE(IsSameSubnet(0xC0A80001, 0xC0A80101, 0xFFFFFF00));
    EXPECT_TRUE(IsSameSubnet(1, 2, 0));
}

TEST(Config, GetPortTakesNetworkOrder) {
    const unsigned char bytes[] = {0x34, 0x58};
    EXPECT_EQ(GetPort(bytes), 13400);
    EXPECT_EQ(GetPort(nullptr), 0);
}

} // namespace
