#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

// The automotive Ethernet hardware of a board. Immutable, safe from any thread.
class EthPhyConfig {
  public:
    EthPhyConfig() = default;
    virtual ~EthPhyConfig() = default;
    EthPhyConfig(const EthPhyConfig&) = delete;
    EthPhyConfig& operator=(const EthPhyConfig&) = delete;

    // PHYs: register addresses, one a channel.
    virtual std::vector<uint32_t> GetPhyEnableAddrs() const = 0;
    virtual std::vector<uint32_t> GetPhyOffsetAddrs() const = 0;
    virtual std::vector<uint32_t> GetPhyStateAddrs() const = 0;

    // First and second device name of each channel.
    virtual std::vector<std::pair<std::string, std::string>> GetDevNames() const = 0;

    // Defaults by channel.
    virtual std::unordered_map<int, int> GetChannelTypes() const = 0;
    virtual std::unordered_map<int, std::string> GetDefaultGateways() const = 0;
    virtual std::unordered_map<int, std::string> GetDefaultIps() const = 0;
    virtual std::unordered_map<int, std::string> GetDefaultMacs() const = 0;
    virtual std::unordered_map<int, long> GetDefaultModes() const = 0;
    virtual std::unordered_map<int, long> GetDefaultIsTaps() const = 0;
    virtual std::unordered_map<int, long> GetDefaultTapModes() const = 0;

    // Switches: addresses, tables and register offsets.
    virtual std::vector<uint32_t> GetSwitchBaseAddrs() const = 0;
    virtual std::vector<std::vector<uint32_t>> GetMirrorConfigs() const = 0;
    virtual std::vector<uint32_t> GetPortIsolationTapConfigs() const = 0;
    virtual std::vector<uint32_t> GetPortIsolationDirConfigs() const = 0;
    virtual uint32_t GetPortIsolationIdOffset() const = 0;
    virtual uint32_t GetPortIsolationBasedOffset() const = 0;
    virtual uint32_t GetPortIsolationVlanOffset() const = 0;
    virtual uint32_t GetPortMirrorIdOffset() const = 0;
    virtual uint32_t GetPortMirrorConfigOffset() const = 0;
    virtual uint32_t GetPortMirrorSrcPortOffset() const = 0;
    virtual uint32_t GetPortMirrorDstPortOffset() const = 0;
    virtual uint32_t GetRemoveTimestampOffset() const = 0;
    virtual uint8_t GetRemoveTimestampValue() const = 0;
    virtual uint32_t GetAddTimestampOffset() const = 0;
    virtual uint8_t GetAddTimestampValue() const = 0;
    virtual uint32_t GetMacLearningOffset() const = 0;

    // PHY access, channel counts and directories.
    virtual std::string GetPhyDevFilePath() const = 0;
    virtual uint32_t GetPhyBaseAddr() const = 0;
    virtual int GetMaxEthChannel() const = 0;
    virtual int GetMaxTapCount() const = 0;
    virtual std::string GetNetnsDir() const = 0;
    virtual std::string GetDhcpConfigDir() const = 0;

    // Bits of the PHY registers.
    virtual int GetPhyLightGpioPin() const = 0;
    virtual int GetBasePmdPmaCtrlBit() const = 0;
    virtual int GetIPhyAutoSpeedBit() const = 0;
    virtual int GetIPhyMsModeBit() const = 0;
    virtual int GetIPhyDuplexBit() const = 0;
    virtual int GetAPhyMsModeBit() const = 0;
    virtual std::vector<int> GetIPhySpeedBits() const = 0;
    virtual std::vector<int> GetAPhySpeedBits() const = 0;

    // Registers of the frame filters, by channel.
    virtual std::unordered_map<int, std::vector<unsigned long>> GetLargeFrameAddrs() const = 0;
    virtual std::unordered_map<int, std::vector<unsigned long>> GetBadFrameAddrs() const = 0;
    virtual uint32_t GetLargeFrameValue() const = 0;
    virtual uint32_t GetBadFrameValue() const = 0;
};
