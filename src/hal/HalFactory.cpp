#include "hal/HalFactory.h"

#include "hal/DevMemRegAccess.h"
#include "hal/GpiolibHalGpio.h"
#include "hal/KernelMachine.h"

#include <utility>

namespace Hal {

namespace {

HalMakers& Makers() {
    static HalMakers makers;
    return makers;
}

} // namespace

std::shared_ptr<IRegAccess> MakeRegAccess(off_t base, size_t size) {
    const auto& make = Makers().regAccess;
    return make ? make(base, size) : std::make_shared<DevMemRegAccess>(base, size);
}

std::shared_ptr<IHalGpio> MakeGpio(const std::string& chipName) {
    const auto& make = Makers().gpio;
    return make ? make(chipName) : std::make_shared<GpiolibHalGpio>(chipName);
}

std::shared_ptr<IMachine> MakeMachine() {
    const auto& make = Makers().machine;
    return make ? make() : std::make_shared<KernelMachine>();
}

void SetHalMakers(HalMakers makers) {
    Makers() = std::move(makers);
}

} // namespace Hal
