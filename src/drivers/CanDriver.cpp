#include "drivers/CanDriver.h"

#include "hal/HalFactory.h"
#include "utils/Console.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <libsocketcan.h>
#include <linux/can.h>
#include <linux/can/bcm.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Drivers {

namespace {

// Register blocks: physical addresses and sizes in bytes.
constexpr off_t kXilinxBase = 0x80000000;
constexpr int kXilinxStrideBits = 16;
constexpr size_t kXilinxSize = 0x10000;
constexpr off_t kMakersBase = 0x81000000;
constexpr int kMakersStrideBits = 15;
constexpr size_t kMakersSize = 0x8000;
constexpr off_t kSharedBase = 0x82000000;
constexpr size_t kSharedSize = 256;

// Xilinx core.
constexpr uint32_t kReset = 0x00;
constexpr uint8_t kResetBit = 0;
constexpr uint8_t kEnableBit = 1;
constexpr uint32_t kMode = 0x04;
constexpr uint8_t kSnoopBit = 2;
constexpr uint8_t kOpenBit = 7; // set at every open
constexpr uint32_t kNominalPrescaler = 0x08;
constexpr uint32_t kNominalTiming = 0x0C;
constexpr uint32_t kErrorCounters = 0x10;
constexpr uint32_t kStatus = 0x18;
constexpr uint8_t kConfigurationBit = 0;
constexpr uint32_t kInterruptEnable = 0x20;
constexpr uint32_t kListenInterrupts = 0x20F52;
constexpr uint32_t kDataPrescaler = 0x88; // and the secondary sample point
constexpr uint8_t kSecondPointBit = 16;
constexpr uint32_t kDataTiming = 0x8C;
constexpr uint32_t kTransmitCancel = 0x98;
constexpr uint32_t kListenReceive = 0xE0;
constexpr uint8_t kListenReceiveBit = 0;
constexpr uint32_t kReceiveBuffer = 0x2100;

// Shared block.
constexpr uint32_t kChannelStatus = 0;
constexpr uint32_t kTermination = 4;
constexpr uint8_t kSecondResistorBits = 6; // above the first resistor's bit

constexpr int kWriteFailed = -0xFF02;

constexpr int kMostResetTries = 100;
constexpr useconds_t kResetPause = 100; // microseconds

constexpr unsigned long kSetSelfAck = SIOCDEVPRIVATE;

ifreq Request(const std::string& name) {
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    return request;
}

uint8_t Bit(int index) {
    return static_cast<uint8_t>(index);
}

uint32_t MinusOne(int32_t value) {
    return static_cast<uint32_t>(value) - 1;
}

} // namespace

CanDriver::CanDriver(const std::string& /*name*/, int index, const std::string& chrDevices)
    : index_(index),
      devRegAccess_(Hal::MakeRegAccess(
          kXilinxBase + (static_cast<off_t>(index) << kXilinxStrideBits), kXilinxSize)),
      pubConfRegAccess_(Hal::MakeRegAccess(kSharedBase, kSharedSize)),
      ipConfRegAccess_(Hal::MakeRegAccess(
          kMakersBase + (static_cast<off_t>(index) << kMakersStrideBits), kMakersSize)) {
    const std::string path = chrDevices + std::to_string(index);
    norvaneCanChrFd_.reset(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!norvaneCanChrFd_) {
        PrintLine("open char device failed: " + path);
    }
    devName_ = "can" + std::to_string(index);
    ipName_ = "n" + devName_;
}

int CanDriver::OpenXilinxIpCore() {
    const bool enabled = EnableOff();
    devRegAccess_->WriteBit(kMode, kOpenBit, true);
    RestoreEnable(enabled);
    return can_do_start(devName_.c_str());
}

int CanDriver::CloseXilinxIpCore() {
    devRegAccess_->Write(kTransmitCancel, 0xFFFFFFFF);
    return can_do_stop(devName_.c_str());
}

int CanDriver::SetXilinxCanIpConfigMode() {
    return devRegAccess_->WriteBit(kReset, kEnableBit, false);
}

int CanDriver::SetXilinxCanIpReset() {
    const bool enabled = EnableOff();
    devRegAccess_->WriteBit(kReset, kResetBit, true);
    bool configuration = false;
    devRegAccess_->ReadBit(kStatus, kConfigurationBit, configuration);
    int tries = 0;
    while (!configuration) {
        if (tries > kMostResetTries) {
            PrintLine("Set Controller Reset Error ! ");
            return -1;
        }
        usleep(kResetPause);
        devRegAccess_->ReadBit(kStatus, kConfigurationBit, configuration);
        ++tries;
    }
    RestoreEnable(enabled);
    return 0;
}

bool CanDriver::GetXilinxIpRxstatus() {
    uint32_t word = 0;
    devRegAccess_->Read(kReceiveBuffer, word);
    return word != 0;
}

int CanDriver::GetNorvaneIpCoreControl() {
    // A CAN socket only because the requests go to a CAN device; it is never bound.
    norvaneCanNetFd_.reset(socket(AF_CAN, SOCK_DGRAM | SOCK_CLOEXEC, CAN_BCM));
    if (!norvaneCanNetFd_) {
        const int error = errno;
        PrintLine("socket failed: " + std::to_string(error));
        return -error;
    }
    ifreq request = Request(ipName_);
    if (ioctl(norvaneCanNetFd_.get(), SIOCGIFINDEX, &request) < 0) {
        const int error = errno;
        PrintLine("ioctl failed: " + std::to_string(error));
        norvaneCanNetFd_.reset();
        return -error;
    }
    return 0;
}

int CanDriver::ReleaseNorvaneIpControl() {
    norvaneCanNetFd_.reset();
    return 0;
}

int CanDriver::OpenNorvaneIpCore() {
    return SetLink(true);
}

int CanDriver::CloseNorvaneIpCore() {
    return SetLink(false);
}

// The flags are set as a whole: the maker's core knows no other than this one.
int CanDriver::SetLink(bool up) {
    ifreq request = Request(ipName_);
    request.ifr_flags = up ? IFF_UP : 0;
    return ioctl(norvaneCanNetFd_.get(), SIOCSIFFLAGS, &request);
}

int CanDriver::SetTimeParam(uint8_t type, const CanTimeParam* param) {
    CANType = type;
    CanDriverTimeParam = *param;
    const ssize_t written = write(norvaneCanChrFd_.get(), param, sizeof(*param));
    return written < 0 ? kWriteFailed : 0;
}

int CanDriver::SetTerminate(int mode) {
    const uint8_t first = Bit(index_);
    const uint8_t second = Bit(index_ + kSecondResistorBits);
    switch (mode) {
    case 0:
        pubConfRegAccess_->WriteBit(kTermination, first, false);
        pubConfRegAccess_->WriteBit(kTermination, second, false);
        return 0;
    case 1:
        pubConfRegAccess_->WriteBit(kTermination, first, true);
        return 0;
    case 2:
        pubConfRegAccess_->WriteBit(kTermination, second, true);
        return 0;
    default:
        return -1;
    }
}

int CanDriver::SetControllerMode(int mode) {
    if (mode == kCanModeListen) {
        SetXilinxCanIpReset(); // a core that does not come back is programmed all the same
        const bool enabled = EnableOff();
        WriteTiming();
        devRegAccess_->Write(kInterruptEnable, kListenInterrupts);
        devRegAccess_->WriteBit(kListenReceive, kListenReceiveBit, true);
        devRegAccess_->WriteBit(kMode, kSnoopBit, true);
        RestoreEnable(enabled);
    } else if (mode == kCanModeNormal) {
        const bool enabled = EnableOff();
        devRegAccess_->WriteBit(kMode, kSnoopBit, false);
        RestoreEnable(enabled);
    }
    return 0;
}

// The reset has wiped the timing that the kernel's driver had set.
void CanDriver::WriteTiming() {
    const auto& nominal = CanDriverTimeParam.norminalParam;
    devRegAccess_->WriteRegion(kNominalPrescaler, 0, 7, MinusOne(nominal.brp));
    devRegAccess_->WriteRegion(kNominalTiming, 16, 22, MinusOne(nominal.sjw));
    devRegAccess_->WriteRegion(kNominalTiming, 0, 7, MinusOne(nominal.sg1));
    devRegAccess_->WriteRegion(kNominalTiming, 8, 14, MinusOne(nominal.sg2));
    if (CANType == 1) {
        const auto& data = CanDriverTimeParam.dataParam;
        devRegAccess_->WriteRegion(kDataPrescaler, 0, 7, MinusOne(data.brp));
        devRegAccess_->WriteRegion(kDataTiming, 16, 19, MinusOne(data.sjw));
        devRegAccess_->WriteRegion(kDataTiming, 0, 4, MinusOne(data.sg1));
        devRegAccess_->WriteRegion(kDataTiming, 8, 11, MinusOne(data.sg2));
    }
}

int CanDriver::SetSecondarySamplePoint(int enable, int offset) {
    if (enable != 0 && enable != 1) {
        return 0;
    }
    devRegAccess_->WriteBit(kReset, kEnableBit, false);
    devRegAccess_->WriteBit(kDataPrescaler, kSecondPointBit, enable == 1);
    devRegAccess_->WriteRegion(kDataPrescaler, 8, 13,
                               enable == 1 ? static_cast<uint32_t>(offset) : 0);
    devRegAccess_->WriteBit(kReset, kEnableBit, true);
    return 0;
}

int CanDriver::SetSelfAckMode(int mode) {
    int32_t value = mode;
    ifreq request = Request(ipName_);
    request.ifr_data = reinterpret_cast<char*>(&value);
    return ioctl(norvaneCanNetFd_.get(), kSetSelfAck, &request) < 0 ? kWriteFailed : 0;
}

int CanDriver::GetTxError() {
    uint32_t count = 0;
    devRegAccess_->ReadRegion(kErrorCounters, 0, 7, count);
    return static_cast<int>(count);
}

int CanDriver::GetRxError() {
    uint32_t count = 0;
    devRegAccess_->ReadRegion(kErrorCounters, 8, 15, count);
    return static_cast<int>(count);
}

int CanDriver::GetErrorStatus() {
    uint32_t state = 0;
    devRegAccess_->ReadRegion(kStatus, 7, 8, state);
    return static_cast<int>(state);
}

int CanDriver::GetChannelStatus() {
    bool status = false;
    pubConfRegAccess_->ReadBit(kChannelStatus, Bit(index_), status);
    return status ? 1 : 0;
}

bool CanDriver::EnableOff() {
    bool enabled = false;
    devRegAccess_->ReadBit(kReset, kEnableBit, enabled);
    devRegAccess_->WriteBit(kReset, kEnableBit, false);
    return enabled;
}

void CanDriver::RestoreEnable(bool enabled) {
    devRegAccess_->WriteBit(kReset, kEnableBit, enabled);
}

} // namespace Drivers
