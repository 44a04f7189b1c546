#pragma once

#include "drivers/UsbPort.h"
#include "utils/UniqueFd.h"

namespace Drivers {

// The character device of the USB gadget driver.
class DeviceUsbPort : public UsbPort {
  public:
    int Open(const std::string& path) override;
    void* Map(off_t offset, size_t length) override;
    void Unmap(void* region, size_t length) override;
    int Doorbell() override;
    void Close() override;

  private:
    UniqueFd fd_;
};

} // namespace Drivers
