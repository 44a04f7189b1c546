#include "hal/DevMemRegAccess.h"

#include <fcntl.h>
#include <sys/mman.h>

namespace Hal {

DevMemRegAccess::DevMemRegAccess(off_t base, size_t size)
    : baseAddress_(static_cast<uint32_t>(base)) {
    size_ = static_cast<uint32_t>(size);
    devMemFd_.reset(open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC));
    if (!devMemFd_) {
        return;
    }
    void* mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, devMemFd_.get(),
                        static_cast<off_t>(baseAddress_));
    if (mapped == MAP_FAILED) {
        devMemFd_.reset();
        return;
    }
    mappedBase_ = static_cast<volatile uint8_t*>(mapped);
    isValid_ = true;
}

DevMemRegAccess::~DevMemRegAccess() {
    if (mappedBase_ != nullptr) {
        munmap(const_cast<uint8_t*>(mappedBase_), size_);
    }
}

} // namespace Hal
