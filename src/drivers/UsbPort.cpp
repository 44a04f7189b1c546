#include "drivers/UsbPort.h"

#include "drivers/DeviceUsbPort.h"

#include <utility>

namespace Drivers {

namespace {

std::function<std::unique_ptr<UsbPort>()>& Maker() {
    static std::function<std::unique_ptr<UsbPort>()> maker;
    return maker;
}

} // namespace

std::unique_ptr<UsbPort> MakeUsbPort() {
    const auto& make = Maker();
    return make ? make() : std::make_unique<DeviceUsbPort>();
}

void SetUsbPortMaker(std::function<std::unique_ptr<UsbPort>()> maker) {
    Maker() = std::move(maker);
}

} // namespace Drivers
