#pragma once

#include "hal/IHalGpio.h"
#include "hal/IRegAccess.h"
#include "utils/UniqueFd.h"
#include "versions/BasicConfig.h"

#include <cstdint>
#include <memory>

namespace Drivers {

enum TimeSyncState : int {
    SYNC_UP = 1,
    SYNC_DOWN = 0,
    SYNC_ERROR = -1,
};

enum TimeSynNodeMode : int {
    Master = 1,
    Slave = 0,
};

// What a bus trouble upload speaks of.
enum ErrorBusType : int {
    Can = 0,
    Kline = 1,
    Lin = 2,
    CanFD = 3,
    SyncLine = 4,
};

enum SyncErrorCodes : int {
    Dropped = 1,
};

// The hardware sync line between devices: this node's role, the sync state in the FPGA, and the red
// and green lamp. Lives on the main thread.
class DevTimeSync {
  public:
    DevTimeSync();
    DevTimeSync(const DevTimeSync&) = delete;
    DevTimeSync& operator=(const DevTimeSync&) = delete;

    // Readable when the sync line has dropped; -1 where the device is missing.
    int Fd() const { return fd_.get(); }

    // Master, sync down, lamps off.
    void Init();

    // 0, or negative when the register could not be written. Only the low bit of `mode` counts.
    int SetTimeSynNodeMode(TimeSynNodeMode mode);

    // Writes the state and shows it; the present state again does nothing. 0, or -1 when the
    // register could not be written, which leaves the state and the lamps at SYNC_ERROR.
    int SetSyncState(TimeSyncState state);

    // Green for up, red for error, neither for anything else.
    void SetSyncStateLight(TimeSyncState state);

  private:
    UniqueFd fd_;
    TimeSyncState state_ = SYNC_DOWN;
    std::shared_ptr<Hal::IRegAccess> regAccess_;
    std::shared_ptr<Hal::IHalGpio> stateLight_;
    uint32_t redLight_, greenLight_; // GPIO lines
    std::shared_ptr<BasicConfig> basicConfig_;
};

} // namespace Drivers
