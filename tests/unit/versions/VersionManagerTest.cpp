#include "versions/VersionManager.h"

#include <gtest/gtest.h>

namespace {

TEST(VersionManager, ASecondCallGivesTheSameObjects) {
    auto& first = VersionManager::GetInstance();
    auto& second = VersionManager::GetInstance();
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(first.GetUsbConfig(), second.GetUsbConfig());
    EXPECT_EQ(first.GetEthPhyConfig(), second.GetEthPhyConfig());
    EXPECT_EQ(first.GetGpioConfig(), second.GetGpioConfig());
    EXPECT_EQ(first.GetBasicConfig(), second.GetBasicConfig());
}

TEST(VersionManager, ShipsTheValuesOfItsBoard) {
    const auto& board = VersionManager::GetInstance();
    EXPECT_EQ(board.GetUsbConfig()->GetUsbPath(), "/dev/usb-zeph");
    EXPECT_EQ(board.GetGpioConfig()->GetDevName(), "gpiochip1");
    EXPECT_EQ(board.GetGpioConfig()->GetTimeSyncGreenLigthPin(), 28U);
    EXPECT_EQ(board.GetGpioConfig()->GetTimeSyncRedLigthPin(), 36U);
    const auto basic = board.GetBasicConfig();
    EXPECT_EQ(basic->GetTimestampBaseAddr(), 0x81000000U);
    EXPECT_EQ(basic->GetTimestampLowOffset(), 36U);
    EXPECT_EQ(basic->GetTimestampHighOffset(), 40U);
    EXPECT_EQ(basic->GetTimeSyncMSModeOffset(), 8U);
    EXPECT_EQ(basic->GetTimeSyncStateOffset(), 12U);
    EXPECT_EQ(basic->GetTimeSyncBaseAddr(), 0x82000000U);
}

TEST(VersionManager, DeclaresNoEthernetAtAll) {
    const auto eth = VersionManager::GetInstance().GetEthPhyConfig();
    EXPECT_TRUE(eth->GetPhyEnableAddrs().empty());
    EXPECT_TRUE(eth->GetPhyOffsetAddrs().empty());
    EXPECT_TRUE(eth->GetPhyStateAddrs().empty());
    EXPECT_TRUE(eth->GetDevNames().empty());
    EXPECT_TRUE(eth->GetChannelTypes().empty());
    EXPECT_TRUE(eth->GetDefaultGateways().empty());
    EXPECT_TRUE(eth->GetDefaultIps().empty());
    EXPECT_TRUE(eth->GetDefaultMacs().empty());
    EXPECT_TRUE(eth->GetDefaultModes().empty());
    EXPECT_TRUE(eth->GetDefaultIsTaps().empty());
    EXPECT_TRUE(eth->GetDefaultTapModes().empty());
    EXPECT_TRUE(eth->GetSwitchBaseAddrs().empty());
    EXPECT_TRUE(eth->GetMirrorConfigs().empty());
    EXPECT_TRUE(eth->GetPortIsolationTapConfigs().empty());
    EXPECT_TRUE(eth->GetPortIsolationDirConfigs().empty());
    EXPECT_EQ(eth->GetPortIsolationIdOffset(), 0U);
    EXPECT_EQ(eth->GetPortIsolationBasedOffset(), 0U);
    EXPECT_EQ(eth->GetPortIsolationVlanOffset(), 0U);
    EXPECT_EQ(eth->GetPortMirrorIdOffset(), 0U);
    EXPECT_EQ(eth->GetPortMirrorConfigOffset(), 0U);
    EXPECT_EQ(eth->GetPortMirrorSrcPortOffset(), 0U);
    EXPECT_EQ(eth->GetPortMirrorDstPortOffset(), 0U);
    EXPECT_EQ(eth->GetRemoveTimestampOffset(), 0U);
    EXPECT_EQ(eth->GetRemoveTimestampValue(), 0U);
    EXPECT_EQ(eth->GetAddTimestampOffset(), 0U);
    EXPECT_EQ(eth->GetAddTimestampValue(), 0U);
    EXPECT_EQ(eth->GetMacLearningOffset(), 0U);
    EXPECT_TRUE(eth->GetPhyDevFilePath().empty());
    EXPECT_EQ(eth->GetPhyBaseAddr(), 0U);
    EXPECT_EQ(eth->GetMaxEthChannel(), 0);
    EXPECT_EQ(eth->GetMaxTapCount(), 0);
    EXPECT_TRUE(eth->GetNetnsDir().empty());
    EXPECT_TRUE(eth->GetDhcpConfigDir().empty());
    EXPECT_EQ(eth->GetPhyLightGpioPin(), 0);
    EXPECT_EQ(eth->GetBasePmdPmaCtrlBit(), 0);
    EXPECT_EQ(eth->GetIPhyAutoSpeedBit(), 0);
    EXPECT_EQ(eth->GetIPhyMsModeBit(), 0);
    EXPECT_EQ(eth->GetIPhyDuplexBit(), 0);
    EXPECT_EQ(eth->GetAPhyMsModeBit(), 0);
    EXPECT_TRUE(eth->GetIPhySpeedBits().empty());
    EXPECT_TRUE(eth->GetAPhySpeedBits().empty());
    EXPECT_TRUE(eth->GetLargeFrameAddrs().empty());
    EXPECT_TRUE(eth->GetBadFrameAddrs().empty());
    EXPECT_EQ(eth->GetLargeFrameValue(), 0U);
    EXPECT_EQ(eth->GetBadFrameValue(), 0U);
}

class TestUsbConfig : public UsbConfig {
  public:
    std::string GetUsbPath() const override { return "/elsewhere"; }
};

TEST(VersionManager, ATestBoardReplacesOnlyWhatItBrings) {
    auto& board = VersionManager::GetInstance();
    const auto shipped = board.GetUsbConfig();
    const auto gpio = board.GetGpioConfig();
    board.ReplaceBoard({std::make_shared<TestUsbConfig>(), nullptr, nullptr, nullptr});
    EXPECT_EQ(board.GetUsbConfig()->GetUsbPath(), "/elsewhere");
    EXPECT_EQ(board.GetGpioConfig(), gpio);
    board.ReplaceBoard({shipped, nullptr, nullptr, nullptr});
    EXPECT_EQ(board.GetUsbConfig(), shipped);
}

} // namespace
