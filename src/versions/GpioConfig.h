#pragma once

#include <cstdint>
#include <string>

// GPIO chip and lamp lines of a board. Immutable, safe from any thread.
class GpioConfig {
  public:
    GpioConfig() = default;
    virtual ~GpioConfig() = default;
    GpioConfig(const GpioConfig&) = delete;
    GpioConfig& operator=(const GpioConfig&) = delete;

    virtual std::string GetDevName() const = 0; // chip name, as libgpiod opens it
    virtual uint32_t GetTimeSyncGreenLigthPin() const = 0;
    virtual uint32_t GetTimeSyncRedLigthPin() const = 0;
};
