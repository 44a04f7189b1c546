#pragma once

#include "drivers/LinOperation.h"

#include <cstdint>
#include <string>
#include <utility>

namespace Drivers {

// One LIN channel's net device, and the records that its character device takes. Results are 0 or
// -1. Lives on the main thread.
class LinDriver {
  public:
    explicit LinDriver(std::string devName) : devName_(std::move(devName)) {}

    // Raises and lowers the net device. A failure is told on standard output.
    int Open();
    int Close();

    // The following three work on `fd`, the character device, which the caller owns. What fails is
    // told on standard error.

    // Changes version, supply and bit rate of the configuration; the rest stays as the driver
    // reports it.
    int ChannelCfg(int fd, const lin_operation* op) const;

    // Changes one field of the configuration: 0 the mode, 1 `open_rx`, 2 `clear_response`. Another
    // `param` is refused when the configuration has been read.
    int ParmCfg(int fd, int param, int value) const;

    // Hands the record over as it stands.
    int OperationCfg(int fd, const lin_operation* op) const;

  private:
    std::string devName_; // LIN<channel>
};

} // namespace Drivers
