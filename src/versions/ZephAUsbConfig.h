#pragma once

#include "versions/UsbConfig.h"

class ZephAUsbConfig : public UsbConfig {
  public:
    std::string GetUsbPath() const override { return "/dev/usb-zeph"; }
};
