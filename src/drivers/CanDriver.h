#pragma once

#include "drivers/CanTimeParam.h"
#include "hal/IRegAccess.h"
#include "utils/UniqueFd.h"

#include <cstdint>
#include <memory>
#include <string>

// Modes of a controller.
constexpr int kCanModeNormal = 0;
constexpr int kCanModeListen = 2;

namespace Drivers {

// One CAN channel over its two hardware blocks, which sit one behind the other: the Xilinx CAN FD
// core, which speaks on the bus (net device can<index>), and the maker's core, which exposes the
// channel to the operating system (net device ncan<index> and a character device). Results are 0 or
// negative. Lives on the main thread.
class CanDriver {
  public:
    // `index`: 0 to 5. `name` is for the caller's sake and is not kept. `chrDevices`: path of the
    // character devices, without the index. A device that cannot be opened is told on standard
    // output, and the writes to it fail.
    CanDriver(const std::string& name, int index,
              const std::string& chrDevices = "/dev/norvane_can");
    CanDriver(const CanDriver&) = delete;
    CanDriver& operator=(const CanDriver&) = delete;

    // Raises and lowers can<index>. -1 on failure.
    int OpenXilinxIpCore();
    int CloseXilinxIpCore();

    // Into configuration mode, where the core takes no part in the bus.
    int SetXilinxCanIpConfigMode();

    // Resets the core, which wipes its registers. -1 when it does not come back within some 10 ms;
    // it then stays disabled.
    int SetXilinxCanIpReset();

    // True while a frame lies in the core's receive buffer.
    bool GetXilinxIpRxstatus();

    // The control socket of the maker's core: takes it, or gives a negated errno.
    int GetNorvaneIpCoreControl();
    int ReleaseNorvaneIpControl();

    // Raises and lowers ncan<index>. Needs the control socket.
    int OpenNorvaneIpCore();
    int CloseNorvaneIpCore();

    // `type`: 0 classic, 1 CAN FD. -65282 when the character device did not take the record.
    int SetTimeParam(uint8_t type, const CanTimeParam* param);

    // 1 and 2 add one terminating resistor each, only 0 takes resistors away: both. -1 for another
    // value.
    int SetTerminate(int mode);

    // 0: normal, 2: listen-only; another value changes nothing.
    int SetControllerMode(int mode);

    // The transmitter's delay compensation. Leaves the core enabled, whatever it was before.
    int SetSecondarySamplePoint(int enable, int offset);

    // Needs the control socket. -65282 on failure.
    int SetSelfAckMode(int mode);

    int GetTxError();       // error counter, 0 to 255
    int GetRxError();       // error counter, 0 to 255
    int GetErrorStatus();   // 0 to 3
    int GetChannelStatus(); // 0 or 1

    // Still owned here; negative when there is none.
    int NorvaneCanNetFd() const { return norvaneCanNetFd_.get(); }
    int NorvaneCanChrFd() const { return norvaneCanChrFd_.get(); }

  private:
    bool EnableOff(); // gives what it was
    void RestoreEnable(bool enabled);
    void WriteTiming();
    int SetLink(bool up);

    int index_;
    UniqueFd norvaneCanChrFd_;
    UniqueFd norvaneCanNetFd_;
    std::string devName_;                               // can<index>
    std::string ipName_;                                // ncan<index>
    std::shared_ptr<Hal::IRegAccess> devRegAccess_;     // Xilinx core
    std::shared_ptr<Hal::IRegAccess> pubConfRegAccess_; // shared by all channels
    std::shared_ptr<Hal::IRegAccess> ipConfRegAccess_;  // maker's core; mapped, not operated
    CanTimeParam CanDriverTimeParam{}; // last set; a reset of the core wipes it there
    uint8_t CANType = 0;               // of the last SetTimeParam
};

} // namespace Drivers
