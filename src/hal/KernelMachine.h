#pragma once

#include "hal/IMachine.h"

namespace Hal {

// The machine by the kernel's own calls.
class KernelMachine : public IMachine {
  public:
    void Sync() override;
    int Reboot(int command) override;
    int Raise(int signal) override;
};

} // namespace Hal
