#pragma once

#include "versions/BasicConfig.h"
#include "versions/EthPhyConfig.h"
#include "versions/GpioConfig.h"
#include "versions/UsbConfig.h"

#include <memory>

// The set of configuration classes of one board.
struct BoardConfigs {
    std::shared_ptr<UsbConfig> usb;
    std::shared_ptr<EthPhyConfig> ethPhy;
    std::shared_ptr<GpioConfig> gpio;
    std::shared_ptr<BasicConfig> basic;
};

// Hands out the configuration of the board that this build is for; nothing is detected at run time.
// The getters are safe from any thread.
class VersionManager {
  public:
    static VersionManager& GetInstance();
    VersionManager(const VersionManager&) = delete;
    VersionManager& operator=(const VersionManager&) = delete;

    std::shared_ptr<UsbConfig> GetUsbConfig() const { return usbConfig_; }
    std::shared_ptr<EthPhyConfig> GetEthPhyConfig() const { return ethPhyConfig_; }
    std::shared_ptr<GpioConfig> GetGpioConfig() const { return gpioConfig_; }
    std::shared_ptr<BasicConfig> GetBasicConfig() const { return basicConfig_; }

    // Puts a test's board in place of the one that ships; a null member leaves that part as it is.
    // Main thread, before other threads ask.
    void ReplaceBoard(BoardConfigs board);

  private:
    VersionManager();

    std::shared_ptr<UsbConfig> usbConfig_;
    std::shared_ptr<EthPhyConfig> ethPhyConfig_;
    std::shared_ptr<GpioConfig> gpioConfig_;
    std::shared_ptr<BasicConfig> basicConfig_;
};
