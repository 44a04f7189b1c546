#include "drivers/LinManage.h"

#include "utils/Console.h"
#include "utils/Logger.h"
#include "utils/UniqueFd.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Drivers {

namespace {

constexpr int kNoDescriptor = 0;      // what a channel that was never opened holds
constexpr int kClosedDescriptor = -1; // what a channel holds whose descriptor has been closed

size_t PageSize() {
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// The room of the records, in whole pages.
size_t MappedBytes() {
    constexpr size_t kBytes = kLinMappedRecords * sizeof(lin_rx_detil);
    static_assert(kBytes == 11200);
    return (kBytes + PageSize() - 1) / PageSize() * PageSize();
}

// Puts zeros where the driver's memory was, in one step: a reader finds the one or the other and
// never a hole. `length` is rounded up to whole pages.
bool CoverWithZeros(void* address, size_t length) {
    return mmap(address, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) !=
           MAP_FAILED;
}

// How many bytes of a mapping, in whole pages, are there: a driver may map less than it is asked
// for, and the capture thread must not fault on the rest. The kernel tries each page here: it
// answers EFAULT where the program would be ended.
size_t ReadableBytes(int ch, const char* region, size_t length) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        VCI_LOG_WARN << "LIN" << ch << ": the driver's mapping of received frames cannot be checked"
                     << " and is taken as whole, for want of a pipe: " << std::strerror(errno);
        return length;
    }
    const UniqueFd readEnd(ends[0]);
    const UniqueFd writeEnd(ends[1]);
    for (size_t offset = 0; offset < length; offset += PageSize()) {
        if (write(writeEnd.get(), region + offset, 1) < 0 && errno == EFAULT) {
            VCI_LOG_WARN << "LIN" << ch << ": the driver maps " << offset << " bytes of the "
                         << length << " for received frames; the others read as 0";
            return offset;
        }
    }
    return length;
}

// Puts zeros behind the first `readable` of `length` bytes.
bool CoverTail(void* address, size_t readable, size_t length) {
    return readable == length ||
           CoverWithZeros(static_cast<char*>(address) + readable, length - readable);
}

// Puts the first `readable` bytes of the driver's memory where an earlier mapping of `length` bytes
// is, and zeros behind them: each in one step, for the capture thread may be reading there.
bool MapAgain(void* address, size_t readable, size_t length, int fd) {
    if (readable != 0 &&
        mmap(address, readable, PROT_READ, MAP_SHARED | MAP_FIXED, fd, 0) == MAP_FAILED) {
        const int error = errno;
        // The kernel may have taken the earlier one away before it failed.
        static_cast<void>(CoverWithZeros(address, length));
        errno = error;
        return false;
    }
    return CoverTail(address, readable, length);
}

} // namespace

std::atomic<int> LinManage::statusMask;
std::array<std::atomic<int>, kLinChannels> LinManage::chrDevFd;
std::array<std::atomic<const lin_rx_detil*>, kLinChannels> LinManage::mappedMemory;

LinManage& LinManage::GetInstance(const std::string& chrDevices) {
    static LinManage instance(chrDevices);
    return instance;
}

LinManage::LinManage(std::string chrDevices) : chrDevices_(std::move(chrDevices)) {
    for (int ch = 0; ch < maxChannelCount; ++ch) {
        const std::string devName = "LIN" + std::to_string(ch);
        PrintLine("devName = " + devName);
        lin_List.push_back(std::make_shared<LinDriver>(devName));
    }
}

LinManage::~LinManage() {
    for (int ch = 0; ch < maxChannelCount; ++ch) {
        CloseDevice(ch);
    }
}

int LinManage::OpenDevice(int ch) {
    if (GetDeviceStatus(ch) == 1) {
        PrintLine("lin dev already open!");
        return 0;
    }
    const std::string path = chrDevices_ + std::to_string(ch) + "_CHAR";
    UniqueFd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd) {
        PrintLine("drivers::LinManage::OpenDevice - open fd fail: ");
        return -1;
    }
    if (Driver(ch).Open() < 0) {
        PrintLine("drivers::LinManage::OpenDevice - open communnicaton fail: ");
        return -1;
    }
    if (SetMemmap(ch, fd.get()) < 0) {
        PrintLine("drivers::LinManage::OpenDevice - mmap set fail: ");
        return -1;
    }
    chrDevFd[static_cast<size_t>(ch)] = fd.release();
    statusMask |= 1 << ch;
    return 0;
}

int LinManage::CloseDevice(int ch) {
    if (GetDeviceStatus(ch) == 0) {
        PrintLine("lin dev already close!");
        return 0;
    }
    if (CloseMemmp(ch) < 0) {
        PrintLine("drivers::LinManage::OpenDevice - close memmp fail: " + std::to_string(ch));
        return -1;
    }
    std::atomic<int>& held = chrDevFd[static_cast<size_t>(ch)];
    if (held == kNoDescriptor) {
        PrintLine("drivers::LinManage::OpenDevice - close fd fail: " + std::to_string(ch));
        return -1;
    }
    // Another try, after the net device did not stop, closes nobody else's descriptor.
    if (const int fd = held.exchange(kClosedDescriptor); fd >= 0) {
        close(fd);
    }
    if (Driver(ch).Close() < 0) {
        PrintLine("drivers::LinManage::OpenDevice - close communnicaton fail: " +
                  std::to_string(ch));
        return -1;
    }
    statusMask &= ~(1 << ch);
    return 0;
}

int LinManage::SetMemmap(int ch, int fd) {
    const size_t length = MappedBytes();
    void* const region = mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, 0);
    if (region == MAP_FAILED) {
        perror("mmap failed");
        return -1;
    }
    const size_t readable = ReadableBytes(ch, static_cast<const char*>(region), length);
    std::atomic<const lin_rx_detil*>& records = mappedMemory[static_cast<size_t>(ch)];
    if (const lin_rx_detil* const earlier = records) {
        // A channel keeps its address for good, however often it is opened. The new mapping was for
        // the check: nobody has seen it.
        munmap(region, length);
        if (!MapAgain(const_cast<lin_rx_detil*>(earlier), readable, length, fd)) {
            perror("mmap failed");
            return -1;
        }
        return 0;
    }
    if (!CoverTail(region, readable, length)) {
        perror("mmap failed");
        munmap(region, length);
        return -1;
    }
    records = static_cast<const lin_rx_detil*>(region); // whole from the first look on
    return 0;
}

// Releases the driver's first page. The rest stays mapped, and the pointer is kept, since the
// capture thread may hold it and read at this very moment.
int LinManage::CloseMemmp(int ch) {
    const lin_rx_detil* const records = mappedMemory[static_cast<size_t>(ch)];
    if (records == nullptr) {
        PrintLine("LinManage::CloseMemmp channel" + std::to_string(ch) + " mmap is null");
        return -1;
    }
    if (!CoverWithZeros(const_cast<lin_rx_detil*>(records), sizeof(lin_rx_detil))) {
        perror("munmap failed");
        return -1;
    }
    return 0;
}

int LinManage::ChannelCfg(int ch, const lin_operation* op) {
    if (GetDeviceStatus(ch) == 0) {
        PrintLine("Drivers::LinManage::ChannelCfg failed! dev off!");
        return -1;
    }
    if (Driver(ch).ChannelCfg(chrDevFd[static_cast<size_t>(ch)], op) < 0) {
        PrintLine("Drivers::LinManage::ChannelCfg send config failed!");
        return -1;
    }
    baudrate[static_cast<size_t>(ch)] = static_cast<int>(op->data.config.bitrate);
    return 0;
}

int LinManage::ParmCfg(int ch, int param, int value) {
    if (GetDeviceStatus(ch) == 0) {
        PrintLine("Drivers::LinManage::ParmCfg device don't open" + std::to_string(value));
        return -1;
    }
    return Driver(ch).ParmCfg(chrDevFd[static_cast<size_t>(ch)], param, value);
}

int LinManage::OperationCfg(int ch, const lin_operation* op) {
    if (GetDeviceStatus(ch) == 0) {
        PrintLine("Drivers::LinManage::OperationCfg failed! dev off!");
        return -1;
    }
    // What becomes of an operation shows on the bus; a refusal is told on standard error alone.
    static_cast<void>(Driver(ch).OperationCfg(chrDevFd[static_cast<size_t>(ch)], op));
    return 0;
}

int LinManage::GetDeviceStatus(int ch) {
    if (ch < 0 || ch >= std::numeric_limits<int>::digits) {
        return 0;
    }
    return statusMask >> ch & 1;
}

const lin_rx_detil* LinManage::GetRxMemmap(int ch) {
    if (ch < 0 || ch >= kLinChannels) {
        PrintLine("LinManage::GetRxMemmap channel error");
        return nullptr;
    }
    const lin_rx_detil* const records = mappedMemory[static_cast<size_t>(ch)];
    if (records == nullptr) {
        PrintLine("linChannel map nullptr");
    }
    return records;
}

} // namespace Drivers
