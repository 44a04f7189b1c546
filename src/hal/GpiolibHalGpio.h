#pragma once

#include "hal/IHalGpio.h"

#include <string>

struct gpiod_chip;

namespace Hal {

// A GPIO chip of the kernel, by libgpiod. A line is requested for each access and released behind
// it, so that other programs can use it between two accesses.
class GpiolibHalGpio : public IHalGpio {
  public:
    explicit GpiolibHalGpio(const std::string& chipName);
    ~GpiolibHalGpio() override;
    GpiolibHalGpio(const GpiolibHalGpio&) = delete;
    GpiolibHalGpio& operator=(const GpiolibHalGpio&) = delete;

    int Write(uint32_t pin, int value) override;
    int Read(uint32_t pin, int& value) override;

  private:
    gpiod_chip* chip_; // null where there is no such chip
};

} // namespace Hal
