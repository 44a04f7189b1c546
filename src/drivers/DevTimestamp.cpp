#include "drivers/DevTimestamp.h"

#include "hal/HalFactory.h"
#include "utils/WireFormat.h"
#include "versions/VersionManager.h"

namespace Drivers {

namespace {

constexpr size_t kBlockSize = 4096;          // bytes
constexpr uint64_t kNanosecondsPerTick = 10; // 100 MHz
constexpr size_t kWireTimeSize = 8;          // bytes

} // namespace

std::shared_ptr<DevTimestamp> DevTimestamp::GetInstance() {
    static const auto instance = std::make_shared<DevTimestamp>();
    return instance;
}

DevTimestamp::DevTimestamp() : basicConfig_(VersionManager::GetInstance().GetBasicConfig()) {
    regAccess_ =
        Hal::MakeRegAccess(static_cast<off_t>(basicConfig_->GetTimestampBaseAddr()), kBlockSize);
}

uint64_t DevTimestamp::GetTimestamp() const {
    // The low word comes first and is not read again: across a carry between the two reads the
    // result is one high-word step ahead: part of what the device time is.
    uint32_t low = 0;
    uint32_t high = 0;
    regAccess_->Read(basicConfig_->GetTimestampLowOffset(), low);
    regAccess_->Read(basicConfig_->GetTimestampHighOffset(), high);
    return (uint64_t{high} << 32 | low) * kNanosecondsPerTick;
}

void DevTimestamp::GetTimestamp(uint8_t* out) const {
    WireWriter({out, kWireTimeSize}).U64(GetTimestamp());
}

} // namespace Drivers
