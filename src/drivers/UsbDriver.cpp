#include "drivers/UsbDriver.h"

#include "common/Config.h"
#include "utils/Console.h"
#include "versions/VersionManager.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/mman.h>

namespace Drivers {

namespace {

// mmap offsets select a region of the device; they are no positions inside one buffer.
constexpr off_t kInfoRegion = 0;
constexpr off_t kReadRegion = 4096;
constexpr off_t kWriteRegion = 8192;
constexpr off_t kLengthRegion = 12288;
constexpr size_t kInfoLength = 4096;

constexpr uint32_t kReadMask = UsbDriver::kReadRingSize - 1;
constexpr uint32_t kWriteMask = 0xffffff;
// The mask of the length ring is that of its 16 MiB of bytes and serves the test for free room
// alone. Its 4-byte entries are addressed with a mask of their own: 0x400000 of them fill it.
constexpr uint32_t kLengthMask = 0xffffff;
constexpr uint32_t kLengthIndexMask = 0x3fffff;

// Places of the ring indices in the info page, in words.
enum InfoWord {
    kReadIn,
    kReadOut,
    kWriteIn,
    kWriteOut,
    kLengthIn,
    kLengthOut
};

constexpr uint64_t kLossesPerReport = 10000;

// The indices are shared with the kernel. Reading the other side's index acquires the bytes behind
// it, moving our own releases the bytes before it.
uint32_t Load(uint32_t* index) {
    return std::atomic_ref<uint32_t>(*index).load(std::memory_order_acquire);
}

void Store(uint32_t* index, uint32_t value) {
    std::atomic_ref<uint32_t>(*index).store(value, std::memory_order_release);
}

uint32_t FillLevel(const ZephKfifo& fifo) {
    return Load(fifo.in) - Load(fifo.out);
}

} // namespace

UsbDriver& UsbDriver::GetInstance() {
    static UsbDriver instance(MakeUsbPort());
    return instance;
}

UsbDriver::UsbDriver(std::unique_ptr<UsbPort> port) : port_(std::move(port)) {
    USBAllocBuffer(); // a device that is not there leaves the rings unmapped, see the class
    PrintLine("UsbDriver(): ");
}

UsbDriver::~UsbDriver() {
    FifoFree(readBuf);
    FifoFree(writeBuf);
    FifoFree(writeLenBuf);
    if (infoMem != nullptr) {
        port_->Unmap(infoMem, kInfoLength);
    }
    port_->Close();
    PrintLine("~UsbDriver(): ");
}

void* UsbDriver::Map(off_t offset, size_t length) {
    void* region = port_->Map(offset, length);
    if (region == MAP_FAILED) {
        perror("mmap");
        port_->Close();
        vciUsbFd_ = -1;
        return nullptr;
    }
    return region;
}

int UsbDriver::USBAllocBuffer() {
    const std::string path = VersionManager::GetInstance().GetUsbConfig()->GetUsbPath();
    vciUsbFd_ = port_->Open(path);
    if (vciUsbFd_ < 0) {
        perror("open failed");
        return -1;
    }
    infoMem = Map(kInfoRegion, kInfoLength);
    if (infoMem == nullptr) {
        return -1;
    }
    readBuf.mask = kReadMask;
    writeBuf.mask = kWriteMask;
    writeLenBuf.mask = kLengthMask;
    readBuf.data = Map(kReadRegion, size_t{kReadMask} + 1);
    if (readBuf.data == nullptr) {
        return -1;
    }
    writeBuf.data = Map(kWriteRegion, size_t{kWriteMask} + 1);
    if (writeBuf.data == nullptr) {
        return -1;
    }
    writeLenBuf.data = Map(kLengthRegion, size_t{kLengthMask} + 1);
    if (writeLenBuf.data == nullptr) {
        return -1;
    }
    auto* words = static_cast<uint32_t*>(infoMem);
    readBuf.in = words + kReadIn;
    readBuf.out = words + kReadOut;
    writeBuf.in = words + kWriteIn;
    writeBuf.out = words + kWriteOut;
    writeLenBuf.in = words + kLengthIn;
    writeLenBuf.out = words + kLengthOut;
    return 0;
}

void UsbDriver::FifoFree(ZephKfifo& fifo) {
    fifo.in = nullptr;
    fifo.out = nullptr;
    if (fifo.data != nullptr) {
        port_->Unmap(fifo.data, size_t{fifo.mask} + 1);
    }
    fifo.data = nullptr;
    fifo.mask = 0;
}

uint32_t UsbDriver::FifoUnused(const ZephKfifo& fifo) {
    return fifo.mask + 1 - FillLevel(fifo);
}

void UsbDriver::CopyIn(ZephKfifo& fifo, const void* src, uint32_t len, uint32_t off) {
    uint32_t size = fifo.mask + 1;
    off &= fifo.mask;
    if (fifo.esize != 1) {
        off *= fifo.esize;
        size *= fifo.esize;
        len *= fifo.esize;
    }
    const uint32_t l = std::min(len, size - off);
    auto* ring = static_cast<uint8_t*>(fifo.data);
    const auto* bytes = static_cast<const uint8_t*>(src);
    std::memcpy(ring + off, bytes, l);
    if (l != len) { // past the end of the ring
        std::memcpy(ring, bytes + l, len - l);
    }
    // The caller's Store of the index is the release that publishes these bytes.
}

void UsbDriver::CopyOut(const ZephKfifo& fifo, void* dst, uint32_t len, uint32_t off) {
    uint32_t size = fifo.mask + 1;
    off &= fifo.mask;
    if (fifo.esize != 1) {
        off *= fifo.esize;
        size *= fifo.esize;
        len *= fifo.esize;
    }
    const uint32_t l = std::min(len, size - off);
    const auto* ring = static_cast<const uint8_t*>(fifo.data);
    auto* bytes = static_cast<uint8_t*>(dst);
    std::memcpy(bytes, ring + off, l);
    if (l != len) { // past the end of the ring
        std::memcpy(bytes + l, ring, len - l);
    }
}

void UsbDriver::CopyLenIn(ZephKfifo& fifo_len, uint32_t len) {
    if (FifoUnused(fifo_len) == 0) {
        // The message's bytes are in the write ring already; without a length they are lost.
        PrintLine(" fuck the usb ");
        return;
    }
    const uint32_t in = Load(fifo_len.in);
    const size_t index = size_t{in & kLengthIndexMask} * sizeof(uint32_t);
    std::memcpy(static_cast<uint8_t*>(fifo_len.data) + index, &len, sizeof(len));
    Store(fifo_len.in, in + 1);
}

uint32_t UsbDriver::OutPeek(const ZephKfifo& fifo, void* dst, uint32_t len) {
    if (fifo.in == nullptr || len > FillLevel(fifo) || len > fifo.mask + 1) {
        return 0;
    }
    CopyOut(fifo, dst, len, Load(fifo.out));
    return len;
}

uint32_t UsbDriver::Out(ZephKfifo& fifo, void* dst, uint32_t len) {
    const uint32_t taken = OutPeek(fifo, dst, len);
    if (taken != 0) {
        Store(fifo.out, Load(fifo.out) + taken);
    }
    return taken;
}

// The two reports are printed without the lock and without an allocation: the console is slow, and
// the capture thread writes here.
void UsbDriver::ReportLost(uint64_t lost, uint32_t in, uint32_t out) {
    char text[96];
    snprintf(text, sizeof(text), "No enough space for copy in, total lost %" PRIu64, lost);
    PrintLine(text);
    snprintf(text, sizeof(text), "inptr[%u], outptr[%u]. ", in, out);
    PrintLine(text);
}

void UsbDriver::ReportDoorbell(int result) const {
    char text[64];
    snprintf(text, sizeof(text), "ioctl failed  : %d ret:  %d", vciUsbFd_, result);
    PrintLine(text);
}

uint32_t UsbDriver::In(ZephKfifo& fifo, ZephKfifo& fifo_len, const void* src, uint32_t len) {
    std::unique_lock<std::mutex> lock(fifoMutex);
    if (len == 0) {
        return 0;
    }
    // An index that the other side has spoilt can make the free room look larger than the ring.
    if (fifo.in == nullptr || len > FifoUnused(fifo) || len > fifo.mask + 1) {
        const uint64_t lost = ++lostCount;
        if (lost % kLossesPerReport == 0 && fifo.in != nullptr) {
            const uint32_t in = Load(fifo.in);
            const uint32_t out = Load(fifo.out);
            lock.unlock();
            ReportLost(lost, in, out);
        }
        return 0;
    }
    const uint32_t in = Load(fifo.in);
    CopyIn(fifo, src, len, in);
    Store(fifo.in, in + len);
    CopyLenIn(fifo_len, len);
    const int rung = port_->Doorbell();
    if (rung < 0) {
        lock.unlock();
        ReportDoorbell(rung);
    }
    return len;
}

uint32_t UsbDriver::UsbPeek(void* dst) {
    return OutPeek(readBuf, dst, kFrameHeadSize);
}

uint32_t UsbDriver::UsbRead(void* dst, int len) {
    return Out(readBuf, dst, static_cast<uint32_t>(len));
}

uint32_t UsbDriver::UsbReadNoCopy(int len) {
    if (readBuf.out != nullptr) {
        Store(readBuf.out, Load(readBuf.out) + static_cast<uint32_t>(len));
    }
    return static_cast<uint32_t>(len);
}

uint32_t UsbDriver::UsbWrite(const void* src, uint32_t len) {
    return In(writeBuf, writeLenBuf, src, len);
}

void UsbDriver::UsbPrint(const void* data, uint32_t len, bool in) {
    constexpr uint32_t kBytesPerLine = 16;
    constexpr const char* kDigits = "0123456789abcdef";
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::string text = in ? "in: " : "out: ";
    for (uint32_t i = 0; i < len; ++i) {
        text += i % kBytesPerLine == 0 ? '\n' : ' ';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xf];
    }
    PrintLine(text);
}

uint32_t UsbDriver::ReadIn() const {
    return readBuf.in != nullptr ? Load(readBuf.in) : 0;
}

uint32_t UsbDriver::ReadOut() const {
    return readBuf.out != nullptr ? Load(readBuf.out) : 0;
}

void UsbDriver::SetReadOut(uint32_t index) {
    if (readBuf.out != nullptr) {
        Store(readBuf.out, index);
    }
}

void UsbDriver::PeekAt(uint32_t at, void* dst, uint32_t len) const {
    if (readBuf.data != nullptr && len <= readBuf.mask + 1) {
        CopyOut(readBuf, dst, len, at);
    }
}

} // namespace Drivers
