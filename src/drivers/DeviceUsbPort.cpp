#include "drivers/DeviceUsbPort.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

namespace Drivers {

namespace {

constexpr unsigned long kDoorbell = 0x7605; // _IO('v', 5)

} // namespace

int DeviceUsbPort::Open(const std::string& path) {
    fd_.reset(open(path.c_str(), O_RDWR | O_CLOEXEC));
    return fd_.get();
}

void* DeviceUsbPort::Map(off_t offset, size_t length) {
    return mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), offset);
}

void DeviceUsbPort::Unmap(void* region, size_t length) {
    munmap(region, length);
}

int DeviceUsbPort::Doorbell() {
    return ioctl(fd_.get(), kDoorbell);
}

void DeviceUsbPort::Close() {
    fd_.reset();
}

} // namespace Drivers
