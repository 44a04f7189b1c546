#include "utils/DevMemUtil.h"

#include "utils/Console.h"

#include <cerrno>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

std::shared_ptr<DevMemUtil> DevMemUtil::GetInstance() {
    static const auto instance = std::make_shared<DevMemUtil>("/dev/mem");
    return instance;
}

DevMemUtil::DevMemUtil(const std::string& device)
    : fd(open(device.c_str(), O_RDWR | O_SYNC | O_CLOEXEC)),
      currentMap_(MAP_FAILED),
      pageSize_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
    if (!fd) {
        throw std::runtime_error("Failed to open /dev/mem (run as root?)");
    }
}

DevMemUtil::~DevMemUtil() {
    Unmap();
}

uint32_t DevMemUtil::Read(uintptr_t address) {
    return *Word(address);
}

void DevMemUtil::Write(uintptr_t address, uint32_t value) {
    *Word(address) = value;
}

void DevMemUtil::RemapPage(uintptr_t page) {
    Unmap();
    currentMap_ = mmap(nullptr, pageSize_, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(),
                       static_cast<off_t>(page));
    if (currentMap_ == MAP_FAILED) {
        throw std::runtime_error("mmap failed: " + std::to_string(errno));
    }
    currentPage_ = page;
}

volatile uint32_t* DevMemUtil::Word(uintptr_t address) {
    if (address % sizeof(uint32_t) != 0) {
        std::ostringstream text;
        text << "Address 0x" << std::hex << address << " not 4-byte aligned";
        PrintLine(text.str());
        throw std::runtime_error("Address must be 4-byte aligned");
    }
    const uintptr_t page = address & ~(static_cast<uintptr_t>(pageSize_) - 1);
    if (page != currentPage_ || currentMap_ == MAP_FAILED) {
        RemapPage(page);
    }
    return reinterpret_cast<volatile uint32_t*>(static_cast<uint8_t*>(currentMap_) +
                                                (address - page));
}

void DevMemUtil::Unmap() {
    if (currentMap_ != MAP_FAILED) {
        munmap(currentMap_, pageSize_);
        currentMap_ = MAP_FAILED;
    }
}
