#include "hal/KernelMachine.h"

#include <csignal>

#include <sys/reboot.h>
#include <unistd.h>

namespace Hal {

void KernelMachine::Sync() {
    sync();
}

int KernelMachine::Reboot(int command) {
    return reboot(command);
}

int KernelMachine::Raise(int signal) {
    return raise(signal);
}

} // namespace Hal
