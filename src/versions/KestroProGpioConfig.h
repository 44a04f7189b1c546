#pragma once

#include "versions/GpioConfig.h"

class KestroProGpioConfig : public GpioConfig {
  public:
    std::string GetDevName() const override { return "gpiochip1"; }
    uint32_t GetTimeSyncGreenLigthPin() const override { return 28; }
    uint32_t GetTimeSyncRedLigthPin() const override { return 36; }
};
