#pragma once

#include "hal/IRegAccess.h"
#include "versions/BasicConfig.h"

#include <cstdint>
#include <memory>

namespace Drivers {

// The device time, from the FPGA's free-running 100 MHz counter. Any thread: the reads have no side
// effects.
class DevTimestamp {
  public:
    static std::shared_ptr<DevTimestamp> GetInstance();

    DevTimestamp();
    DevTimestamp(const DevTimestamp&) = delete;
    DevTimestamp& operator=(const DevTimestamp&) = delete;

    // Nanoseconds since the counter was 0, in steps of 10; 0 where there is no counter.
    uint64_t GetTimestamp() const;

    // The same as the 8 bytes that stand in every message, least significant first.
    void GetTimestamp(uint8_t* out) const;

  private:
    std::shared_ptr<Hal::IRegAccess> regAccess_;
    std::shared_ptr<BasicConfig> basicConfig_;
};

} // namespace Drivers
