#include "versions/VersionManager.h"

#include "versions/KestroProBasicConfig.h"
#include "versions/KestroProEthPhyConfig.h"
#include "versions/KestroProGpioConfig.h"
#include "versions/ZephAUsbConfig.h"

#include <utility>

VersionManager& VersionManager::GetInstance() {
    static VersionManager instance;
    return instance;
}

VersionManager::VersionManager()
    : usbConfig_(std::make_shared<ZephAUsbConfig>()),
      ethPhyConfig_(std::make_shared<KestroProEthPhyConfig>()),
      gpioConfig_(std::make_shared<KestroProGpioConfig>()),
      basicConfig_(std::make_shared<KestroProBasicConfig>()) {}

void VersionManager::ReplaceBoard(BoardConfigs board) {
    if (board.usb) {
        usbConfig_ = std::move(board.usb);
    }
    if (board.ethPhy) {
        ethPhyConfig_ = std::move(board.ethPhy);
    }
    if (board.gpio) {
        gpioConfig_ = std::move(board.gpio);
    }
    if (board.basic) {
        basicConfig_ = std::move(board.basic);
    }
}
