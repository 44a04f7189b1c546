#include "utils/NetworkUtil.h"

#include <climits>

#include <gtest/gtest.h>

namespace {

const auto kNetwork = NetworkUtil::GetInstance();

TEST(NetworkUtil, IsOneInstance) {
    EXPECT_NE(NetworkUtil::GetInstance(), nullptr);
    EXPECT_EQ(NetworkUtil::GetInstance(), NetworkUtil::GetInstance());
}

TEST(NetworkUtil, StripMaskTakesTheTextBeforeTheFirstSlash) {
    EXPECT_EQ(kNetwork->StripMask("192.168.1.10/24"), "192.168.1.10");
    EXPECT_EQ(kNetwork->StripMask("10.0.0.1/8/9"), "10.0.0.1");
    EXPECT_EQ(kNetwork->StripMask("10.0.0.1"), "10.0.0.1");
    EXPECT_EQ(kNetwork->StripMask("/24"), "");
    EXPECT_EQ(kNetwork->StripMask(""), "");
}

TEST(NetworkUtil, IpTextOfANumberInHostOrder) {
    EXPECT_EQ(kNetwork->IpToString(uint32_t{0xC0A8010A}), "192.168.1.10");
    EXPECT_EQ(kNetwork->IpToString(uint32_t{0}), "0.0.0.0");
    EXPECT_EQ(kNetwork->IpToString(uint32_t{0xFFFFFFFF}), "255.255.255.255");
}

TEST(NetworkUtil, IpTextOfBytes) {
    constexpr uint8_t kIp[] = {192, 168, 1, 10};
    EXPECT_EQ(kNetwork->IpToString(kIp), "192.168.1.10");
}

TEST(NetworkUtil, MacTextKeepsZeros) {
    constexpr uint8_t kMac[] = {0x0A, 0x00, 0x01, 0x02, 0x03, 0x04};
    EXPECT_EQ(kNetwork->MacToString(kMac), "0a:00:01:02:03:04");
}

TEST(NetworkUtil, MacTextIsLowercase) {
    constexpr uint8_t kMac[] = {0xFF, 0xED, 0xCB, 0xA9, 0x87, 0x65};
    EXPECT_EQ(kNetwork->MacToString(kMac), "ff:ed:cb:a9:87:65");
}

TEST(NetworkUtil, SubnetMaskText) {
    EXPECT_EQ(kNetwork->SubnetMaskToString(0), "0.0.0.0");
    EXPECT_EQ(kNetwork->SubnetMaskToString(1), "128.0.0.0");
    EXPECT_EQ(kNetwork->SubnetMaskToString(24), "255.255.255.0");
    EXPECT_EQ(kNetwork->SubnetMaskToString(31), "255.255.255.254");
    EXPECT_EQ(kNetwork->SubnetMaskToString(32), "255.255.255.255");
}

TEST(NetworkUtil, SubnetMaskTextOfAPrefixOutOfRange) {
    EXPECT_EQ(kNetwork->SubnetMaskToString(-1), "0.0.0.0");
    EXPECT_EQ(kNetwork->SubnetMaskToString(INT_MIN), "0.0.0.0");
    EXPECT_EQ(kNetwork->SubnetMaskToString(33), "255.255.255.255");
    EXPECT_EQ(kNetwork->SubnetMaskToString(INT_MAX), "255.255.255.255");
}

TEST(NetworkUtil, SubnetMaskNumber) {
    EXPECT_EQ(kNetwork->GetSubnetMask(0), 0U);
    EXPECT_EQ(kNetwork->GetSubnetMask(1), 0x80000000U);
    EXPECT_EQ(kNetwork->GetSubnetMask(24), 0xFFFFFF00U);
    EXPECT_EQ(kNetwork->GetSubnetMask(31), 0xFFFFFFFEU);
    EXPECT_EQ(kNetwork->GetSubnetMask(32), 0xFFFFFFFFU);
}

TEST(NetworkUtil, SubnetMaskAbove31IsAllOnes) {
    EXPECT_EQ(kNetwork->GetSubnetMask(33), 0xFFFFFFFFU);
    EXPECT_EQ(kNetwork->GetSubnetMask(UINT32_MAX), 0xFFFFFFFFU);
}

TEST(NetworkUtil, FirstAndLastAddressOfANetwork) {
    EXPECT_EQ(kNetwork->GetNetworkAddress(0xC0A8012AU, 0xFFFFFF00U), 0xC0A80100U);
    EXPECT_EQ(kNetwork->GetBroadcastAddress(0xC0A8012AU, 0xFFFFFF00U), 0xC0A801FFU);
}

} // namespace
