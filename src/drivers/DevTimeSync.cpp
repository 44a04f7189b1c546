#include "drivers/DevTimeSync.h"

#include "hal/HalFactory.h"
#include "versions/VersionManager.h"

#include <fcntl.h>

namespace Drivers {

namespace {

constexpr const char* kErrorDevice = "/dev/time_sync_error";
constexpr size_t kBlockSize = 4096; // bytes

// Two further board lines, set once; fixed numbers, as no board's configuration names them.
constexpr uint32_t kLineSetHigh = 27;
constexpr uint32_t kLineSetLow = 31;

// The lamps sit between supply and line: they light at level 0.
constexpr int kLit = 0;
constexpr int kDark = 1;

} // namespace

DevTimeSync::DevTimeSync()
    : fd_(open(kErrorDevice, O_RDWR | O_CLOEXEC)),
      basicConfig_(VersionManager::GetInstance().GetBasicConfig()) {
    const auto gpio = VersionManager::GetInstance().GetGpioConfig();
    regAccess_ =
        Hal::MakeRegAccess(static_cast<off_t>(basicConfig_->GetTimeSyncBaseAddr()), kBlockSize);
    stateLight_ = Hal::MakeGpio(gpio->GetDevName());
    redLight_ = gpio->GetTimeSyncRedLigthPin();
    greenLight_ = gpio->GetTimeSyncGreenLigthPin();
    stateLight_->Write(kLineSetHigh, 1);
    stateLight_->Write(kLineSetLow, 0);
}

void DevTimeSync::Init() {
    SetTimeSynNodeMode(Master);
    SetSyncState(SYNC_DOWN);
    SetSyncStateLight(SYNC_DOWN);
}

int DevTimeSync::SetTimeSynNodeMode(TimeSynNodeMode mode) {
    const uint32_t slave = ~static_cast<uint32_t>(mode) & 1U; // the register holds the inverse
    return regAccess_->Write(basicConfig_->GetTimeSyncMSModeOffset(), slave);
}

int DevTimeSync::SetSyncState(TimeSyncState state) {
    if (state == state_) {
        return 0;
    }
    if (regAccess_->Write(basicConfig_->GetTimeSyncStateOffset(), static_cast<uint32_t>(state)) <
        0) {
        state_ = SYNC_ERROR;
        SetSyncStateLight(SYNC_ERROR);
        return -1;
    }
    state_ = state;
    SetSyncStateLight(state);
    return 0;
}

void DevTimeSync::SetSyncStateLight(TimeSyncState state) {
    switch (state) {
    case SYNC_UP:
        stateLight_->Write(greenLight_, kLit);
        stateLight_->Write(redLight_, kDark);
        break;
    case SYNC_ERROR:
        stateLight_->Write(greenLight_, kDark);
        stateLight_->Write(redLight_, kLit);
        break;
    default:
        stateLight_->Write(redLight_, kDark);
        stateLight_->Write(greenLight_, kDark);
        break;
    }
}

} // namespace Drivers
