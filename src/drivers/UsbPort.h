#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <sys/types.h>

namespace Drivers {

// What UsbDriver needs of the kernel: one device that maps four regions and takes a doorbell. The
// driver calls everything but Doorbell() on the thread that builds it; Doorbell() comes from any
// thread, one at a time.
class UsbPort {
  public:
    UsbPort() = default;
    virtual ~UsbPort() = default;
    UsbPort(const UsbPort&) = delete;
    UsbPort& operator=(const UsbPort&) = delete;

    // Opens the device. Its descriptor, or negative with errno set.
    virtual int Open(const std::string& path) = 0;

    // Maps the region that `offset` selects, `length` bytes. MAP_FAILED with errno set on failure.
    virtual void* Map(off_t offset, size_t length) = 0;
    virtual void Unmap(void* region, size_t length) = 0;

    // Tells the other side that the write ring holds new data. Negative on failure.
    virtual int Doorbell() = 0;

    virtual void Close() = 0;
};

// The port of the board: the character device at the opened path.
std::unique_ptr<UsbPort> MakeUsbPort();

// Puts a test's port in place of the device. Takes effect for a UsbDriver built later; an empty
// function restores the device.
void SetUsbPortMaker(std::function<std::unique_ptr<UsbPort>()> maker);

} // namespace Drivers
