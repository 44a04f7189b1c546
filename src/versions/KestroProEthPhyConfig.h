#pragma once

#include "versions/EthPhyConfig.h"

// A board without automotive Ethernet: 0 channels, 0 taps, no PHY and no switch. Every value is the
// empty one of its type, and all Ethernet code runs over empty ranges. A board with Ethernet gets a
// class of its own; invented addresses here would make the daemon write into foreign registers.
class KestroProEthPhyConfig : public EthPhyConfig {
  public:
    std::vector<uint32_t> GetPhyEnableAddrs() const override { return {}; }
    std::vector<uint32_t> GetPhyOffsetAddrs() const override { return {}; }
    std::vector<uint32_t> GetPhyStateAddrs() const override { return {}; }

    std::vector<std::pair<std::string, std::string>> GetDevNames() const override { return {}; }

    std::unordered_map<int, int> GetChannelTypes() const override { return {}; }
    std::unordered_map<int, std::string> GetDefaultGateways() const override { return {}; }
    std::unordered_map<int, std::string> GetDefaultIps() const override { return {}; }
    std::unordered_map<int, std::string> GetDefaultMacs() const override { return {}; }
    std::unordered_map<int, long> GetDefaultModes() const override { return {}; }
    std::unordered_map<int, long> GetDefaultIsTaps() const override { return {}; }
    std::unordered_map<int, long> GetDefaultTapModes() const override { return {}; }

    std::vector<uint32_t> GetSwitchBaseAddrs() const override { return {}; }
    std::vector<std::vector<uint32_t>> GetMirrorConfigs() const override { return {}; }
    std::vector<uint32_t> GetPortIsolationTapConfigs() const override { return {}; }
    std::vector<uint32_t> GetPortIsolationDirConfigs() const override { return {}; }
    uint32_t GetPortIsolationIdOffset() const override { return {}; }
    uint32_t GetPortIsolationBasedOffset() const override { return {}; }
    uint32_t GetPortIsolationVlanOffset() const override { return {}; }
    uint32_t GetPortMirrorIdOffset() const override { return {}; }
    uint32_t GetPortMirrorConfigOffset() const override { return {}; }
    uint32_t GetPortMirrorSrcPortOffset() const override { return {}; }
    uint32_t GetPortMirrorDstPortOffset() const override { return {}; }
    uint32_t GetRemoveTimestampOffset() const override { return {}; }
    uint8_t GetRemoveTimestampValue() const override { return {}; }
    uint32_t GetAddTimestampOffset() const override { return {}; }
    uint8_t GetAddTimestampValue() const override { return {}; }
    uint32_t GetMacLearningOffset() const override { return {}; }

    std::string GetPhyDevFilePath() const override { return {}; }
    uint32_t GetPhyBaseAddr() const override { return {}; }
    int GetMaxEthChannel() const override { return {}; }
    int GetMaxTapCount() const override { return {}; }
    std::string GetNetnsDir() const override { return {}; }
    std::string GetDhcpConfigDir() const override { return {}; }

    int GetPhyLightGpioPin() const override { return {}; }
    int GetBasePmdPmaCtrlBit() const override { return {}; }
    int GetIPhyAutoSpeedBit() const override { return {}; }
    int GetIPhyMsModeBit() const override { return {}; }
    int GetIPhyDuplexBit() const override { return {}; }
    int GetAPhyMsModeBit() const override { return {}; }
    std::vector<int> GetIPhySpeedBits() const override { return {}; }
    std::vector<int> GetAPhySpeedBits() const override { return {}; }

    std::unordered_map<int, std::vector<unsigned long>> GetLargeFrameAddrs() const override {
        return {};
    }
    std::unordered_map<int, std::vector<unsigned long>> GetBadFrameAddrs() const override {
        return {};
    }
    uint32_t GetLargeFrameValue() const override { return {}; }
    uint32_t GetBadFrameValue() const override { return {}; }
};
