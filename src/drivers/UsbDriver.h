#pragma once

#include "drivers/UsbPort.h"

#include <cstdint>
#include <memory>
#include <mutex>

// The view of one ring that is shared with the kernel driver. `in` and `out` count freely as 32-bit
// numbers and are masked only where the ring is addressed; each has one writer.
struct ZephKfifo {
    uint32_t* in = nullptr;
    uint32_t* out = nullptr;
    uint32_t mask = 0;  // size in bytes minus 1, of a power of two
    uint32_t esize = 1; // bytes an element
    void* data = nullptr;
};

namespace Drivers {

// The only road to the host: three rings and a page of indices, shared with the USB gadget driver.
// A host message costs no system call on its way in and one on its way out. Reading belongs to the
// main thread; UsbWrite may be called from any thread. Where the device could not be mapped, the
// rings count as empty for reading and as full for writing.
class UsbDriver {
  public:
    static constexpr uint32_t kReadRingSize = 0x100000; // bytes

    // The process-wide driver, built on first use on the port that MakeUsbPort() yields.
    static UsbDriver& GetInstance();

    explicit UsbDriver(std::unique_ptr<UsbPort> port);
    ~UsbDriver();
    UsbDriver(const UsbDriver&) = delete;
    UsbDriver& operator=(const UsbDriver&) = delete;

    // Copies the next 8 bytes of the read ring to `dst` and leaves them there. 8, or 0 with nothing
    // copied when there are fewer.
    uint32_t UsbPeek(void* dst);

    // Copies `len` bytes of the read ring to `dst` and consumes them. `len`, or 0 with nothing
    // copied or consumed when there are fewer.
    uint32_t UsbRead(void* dst, int len);

    // Moves the read index by `len` bytes, also backwards or past what has arrived. Returns `len`.
    uint32_t UsbReadNoCopy(int len);

    // Queues one whole message of `len` bytes for the host. `len`, or 0 when the message was
    // dropped, since the ring lacks room, or empty. Never blocks on the host, never allocates; the
    // bytes are copied by the time it returns. Any thread.
    uint32_t UsbWrite(const void* src, uint32_t len);

    // Prints bytes to standard output in hexadecimal, 16 to a line, under "in: " or "out: ".
    void UsbPrint(const void* data, uint32_t len, bool in);

    // The read ring's indices, for finding the way back to a frame boundary after a fault:
    // ReadIn() is where the next byte from the host will stand, ReadOut() where the next read
    // begins; PeekAt copies `len` bytes that stand at index `at`.
    uint32_t ReadIn() const;
    uint32_t ReadOut() const;
    void SetReadOut(uint32_t index);
    void PeekAt(uint32_t at, void* dst, uint32_t len) const;

  private:
    int USBAllocBuffer();
    void* Map(off_t offset, size_t length);
    void FifoFree(ZephKfifo& fifo);

    static uint32_t FifoUnused(const ZephKfifo& fifo);
    static void CopyIn(ZephKfifo& fifo, const void* src, uint32_t len, uint32_t off);
    static void CopyLenIn(ZephKfifo& fifo_len, uint32_t len);
    static void CopyOut(const ZephKfifo& fifo, void* dst, uint32_t len, uint32_t off);
    uint32_t In(ZephKfifo& fifo, ZephKfifo& fifo_len, const void* src, uint32_t len);
    static uint32_t Out(ZephKfifo& fifo, void* dst, uint32_t len);
    static uint32_t OutPeek(const ZephKfifo& fifo, void* dst, uint32_t len);
    static void ReportLost(uint64_t lost, uint32_t in, uint32_t out);
    void ReportDoorbell(int result) const;

    // Held for one copy into the ring and nothing else: the capture thread, of the highest
    // priority, may have to wait until a thread without any priority has been given the processor
    // to end its copy.
    std::mutex fifoMutex;
    uint64_t lostCount = 0; // messages dropped for want of room
    void* infoMem = nullptr;
    ZephKfifo readBuf, writeBuf, writeLenBuf;
    int vciUsbFd_ = -1; // the port owns it
    std::unique_ptr<UsbPort> port_;
};

} // namespace Drivers
