#include "doubles/MemoryUsb.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <sys/mman.h>

namespace {

constexpr uint32_t kInfoSize = 4096;
constexpr uint32_t kReadSize = 0x100000;
constexpr uint32_t kWriteSize = 0x1000000;
constexpr uint32_t kLengthEntries = 0x400000;
constexpr int kDescriptor = 7; // what Open() reports; nothing uses it as a real one

class MemoryPort : public Drivers::UsbPort {
  public:
    explicit MemoryPort(MemoryUsb& usb, uint32_t* info) : usb_(usb), info_(info) {}

    int Open(const std::string&) override {
        if (usb_.failOpen) {
            errno = ENOENT;
            return -1;
        }
        return kDescriptor;
    }

    void* Map(off_t offset, size_t) override {
        if (offset == usb_.failMapAt) {
            errno = ENOMEM;
            return MAP_FAILED;
        }
        ++usb_.mapped;
        switch (offset) {
        case 0:
            return info_;
        case 4096:
            return usb_.ReadRing();
        case 8192:
            return usb_.WriteRing();
        case 12288:
            return usb_.LengthRing();
        default:
            errno = EINVAL;
            return MAP_FAILED;
        }
    }

    void Unmap(void* region, size_t length) override {
        const bool right =
            (region == info_ && length == kInfoSize) ||
            (region == usb_.ReadRing() && length == kReadSize) ||
            ((region == usb_.WriteRing() || region == usb_.LengthRing()) && length == kWriteSize);
        if (right) {
            --usb_.mapped;
        }
    }

    int Doorbell() override {
        ++usb_.doorbells;
        return usb_.doorbell ? usb_.doorbell() : 0;
    }

    void Close() override { ++usb_.closed; }

  private:
    MemoryUsb& usb_;
    uint32_t* info_;
};

} // namespace

MemoryUsb& MemoryUsb::Instance() {
    static MemoryUsb usb;
    return usb;
}

MemoryUsb::MemoryUsb() : info_(1024), read_(kReadSize), write_(kWriteSize), length_(kWriteSize) {
    Drivers::SetUsbPortMaker([this] { return MakePort(); });
}

std::unique_ptr<Drivers::UsbPort> MemoryUsb::MakePort() {
    return std::make_unique<MemoryPort>(*this, info_.data());
}

void MemoryUsb::Reset() {
    for (int index = kReadIn; index <= kLengthOut; ++index) {
        Set(static_cast<Index>(index), 0);
    }
    doorbell = nullptr;
    failOpen = false;
    failMapAt = -1;
    doorbells = 0;
    closed = 0;
}

uint32_t* MemoryUsb::Word(Index index) const {
    return const_cast<uint32_t*>(info_.data()) + index;
}

uint32_t MemoryUsb::Get(Index index) const {
    return std::atomic_ref<uint32_t>(*Word(index)).load(std::memory_order_acquire);
}

void MemoryUsb::Set(Index index, uint32_t value) {
    std::atomic_ref<uint32_t>(*Word(index)).store(value, std::memory_order_release);
}

void MemoryUsb::HostWrite(std::span<const uint8_t> bytes) {
    const uint32_t in = Get(kReadIn);
    for (size_t i = 0; i < bytes.size(); ++i) {
        read_[(in + i) % kReadSize] = bytes[i];
    }
    Set(kReadIn, in + static_cast<uint32_t>(bytes.size()));
}

std::optional<std::vector<uint8_t>> MemoryUsb::HostRead() {
    const uint32_t entry = Get(kLengthOut);
    if (entry == Get(kLengthIn)) {
        return std::nullopt;
    }
    uint32_t length = 0;
    std::memcpy(&length, length_.data() + size_t{entry % kLengthEntries} * 4, sizeof(length));
    const uint32_t out = Get(kWriteOut);
    std::vector<uint8_t> message(length);
    for (uint32_t i = 0; i < length; ++i) {
        message[i] = write_[(out + i) % kWriteSize];
    }
    Set(kWriteOut, out + length);
    Set(kLengthOut, entry + 1);
    return message;
}
