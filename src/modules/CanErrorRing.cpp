#include "modules/CanErrorRing.h"

#include "utils/Console.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>

namespace {

constexpr size_t kMappedBytes = 24576; // the driver's region; the ring is its start

static_assert(CanErrorRing::kSlots * sizeof(ErrorInfo) <= kMappedBytes);

} // namespace

CanErrorRing::~CanErrorRing() {
    if (slots_ != nullptr) {
        munmap(const_cast<ErrorInfo*>(slots_), kMappedBytes);
    }
}

bool CanErrorRing::Open(const std::string& path) {
    chrFd_.reset(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!chrFd_) {
        PrintLine("Open char device failed! errno:" + std::to_string(errno));
        return false;
    }
    void* region = mmap(nullptr, kMappedBytes, PROT_READ | PROT_WRITE, MAP_SHARED, chrFd_.get(), 0);
    if (region == MAP_FAILED) {
        PrintLine("mmap is failed!");
        return false;
    }
    slots_ = static_cast<const ErrorInfo*>(region);
    return true;
}

ErrorInfo CanErrorRing::Read(uint8_t slot) const {
    ErrorInfo info;
    std::memcpy(&info, slots_ + slot, sizeof(info));
    return info;
}
