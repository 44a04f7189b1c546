#pragma once

#include <cstdint>

namespace Hal {

// The lines of one GPIO chip. Lives on the thread of its owner; nothing locks.
class IHalGpio {
  public:
    virtual ~IHalGpio() = default;

    // Drives line `pin` to level 0 or 1. 0, or negative: -1 no chip, -2 no such line, -3 the line
    // is in use, -4 the level could not be set.
    virtual int Write(uint32_t pin, int value) = 0;

    // Stores the level of line `pin` in `value`. 0, or negative: -1 no chip, -2 no such line, -5
    // the line is in use, -4 the level could not be read.
    virtual int Read(uint32_t pin, int& value) = 0;
};

} // namespace Hal
