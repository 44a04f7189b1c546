#pragma once

namespace Hal {

// What acts on more than this program's own work. A test that did it would end the machine that it
// runs on, or itself. Any thread.
class IMachine {
  public:
    virtual ~IMachine() = default;

    // Returns when everything written so far, by any program, is on its disk.
    virtual void Sync() = 0;

    // Restarts or halts the machine at once, by a LINUX_REBOOT_CMD of <linux/reboot.h>: what is not
    // on disk is lost. Does not return, unless the kernel refuses: negative, with errno.
    virtual int Reboot(int command) = 0;

    // Sends this process a signal. 0, or another number when there is no such signal.
    virtual int Raise(int signal) = 0;
};

} // namespace Hal
