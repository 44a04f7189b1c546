#include "drivers/CanManage.h"

#include "utils/Console.h"

#include <fstream>
#include <utility>

std::array<std::atomic<uint64_t>, kCanChannels> CanRxFrameNum;
std::array<std::atomic<uint64_t>, kCanChannels> CanTxFrameNum;
std::array<std::atomic<uint64_t>, kCanChannels> CanErrFrameNum;
std::array<std::atomic<uint64_t>, kCanChannels> CanFrameNum;

namespace Drivers {

namespace {

constexpr int kNoControl = -8;
constexpr int kMakersCoreNotRaised = -9;
constexpr int kXilinxNotStarted = -3;
constexpr int kXilinxNotStopped = -4;
constexpr int kMakersCoreNotLowered = -10;
constexpr int kControlNotReleased = -11;
constexpr int kChannelOpen = -1;

constexpr int64_t kClock = 40000000; // Hz, of both cores

// At this data rate the cores sample better without the secondary sample point.
constexpr int kRateWithoutSecondPoint = 1000000; // bit/s

int BitRate(int32_t brp, int32_t sg1, int32_t sg2) {
    const int64_t divisor = int64_t{brp} * (int64_t{sg1} + sg2 + 1);
    return divisor == 0 ? 0 : static_cast<int>(kClock / divisor);
}

void Assign(std::atomic<int>& mask, int ch, bool value) {
    if (value) {
        mask |= 1 << ch;
    } else {
        mask &= ~(1 << ch);
    }
}

int Test(const std::atomic<int>& mask, int ch) {
    return mask >> ch & 1;
}

} // namespace

std::array<std::atomic<int>, kCanChannels> CanManage::BaudRate_;
std::array<std::atomic<int>, kCanChannels> CanManage::DataBaudRate_;
std::atomic<int> CanManage::statusMask_;
std::atomic<int> CanManage::ListenstatusMask_;
std::atomic<int> CanManage::ListenchannelForbidden_;

CanManage& CanManage::GetInstance(const std::string& chrDevices, const std::string& forbiddenFile) {
    static CanManage instance(chrDevices, forbiddenFile);
    return instance;
}

CanManage::CanManage(const std::string& chrDevices, std::string forbiddenFile)
    : forbiddenFile_(std::move(forbiddenFile)) {
    LoadListenForbiddenState();
    for (int ch = 0; ch < maxChannelCount_; ++ch) {
        deviceList_.push_back(
            std::make_shared<CanDriver>("can" + std::to_string(ch), ch, chrDevices));
        BaudRate_[static_cast<size_t>(ch)] = 0;
        DataBaudRate_[static_cast<size_t>(ch)] = 0;
    }
}

CanManage::~CanManage() {
    SaveListenForbiddenState();
}

int CanManage::OpenDevice(int ch) {
    CanDriver& driver = Driver(ch);
    if (driver.GetNorvaneIpCoreControl() != 0) {
        return kNoControl;
    }
    if (driver.OpenNorvaneIpCore() != 0) {
        return kMakersCoreNotRaised;
    }
    if (driver.OpenXilinxIpCore() != 0) {
        return kXilinxNotStarted;
    }
    Assign(statusMask_, ch, true);
    return 0;
}

int CanManage::CloseDevice(int ch) {
    CanDriver& driver = Driver(ch);
    driver.SetXilinxCanIpConfigMode();
    if (driver.CloseXilinxIpCore() == -1) {
        return kXilinxNotStopped;
    }
    if (driver.CloseNorvaneIpCore() != 0) {
        return kMakersCoreNotLowered;
    }
    if (driver.ReleaseNorvaneIpControl() != 0) {
        return kControlNotReleased;
    }
    Assign(statusMask_, ch, false);
    const auto take = [ch](std::array<std::atomic<uint64_t>, kCanChannels>& counters) {
        return std::to_string(counters[static_cast<size_t>(ch)].exchange(0));
    };
    std::string line = "CAN Channel " + std::to_string(ch);
    line += " Rx: " + take(CanRxFrameNum);
    line += " Tx: " + take(CanTxFrameNum);
    line += " Er: " + take(CanErrFrameNum);
    line += " Al: " + take(CanFrameNum);
    PrintLine(line);
    return 0;
}

int CanManage::SetTimeParam(int ch, uint8_t type, const CanTimeParam* param) {
    if (GetDeviceStatus(ch) == 1) {
        return kChannelOpen;
    }
    CanDriver& driver = Driver(ch);
    const int result = driver.SetTimeParam(type, param);
    if (result < 0) {
        return result;
    }
    const auto& nominal = param->norminalParam;
    const auto& data = param->dataParam;
    const auto index = static_cast<size_t>(ch);
    BaudRate_[index] = BitRate(nominal.brp, nominal.sg1, nominal.sg2);
    DataBaudRate_[index] = BitRate(data.brp, data.sg1, data.sg2);
    if (DataBaudRate_[index] == kRateWithoutSecondPoint) {
        driver.SetSecondarySamplePoint(0, 0);
    }
    return 0;
}

int CanManage::SetTerminal(int ch, int mode) {
    return Driver(ch).SetTerminate(mode);
}

int CanManage::SetSecondarySamplePoint(int ch, int enable, int offset) {
    if (GetDeviceStatus(ch) == 1) {
        return kChannelOpen;
    }
    return Driver(ch).SetSecondarySamplePoint(enable, offset);
}

int CanManage::SetControllerMode(int ch, int mode) {
    if (mode == kCanModeListen) {
        Assign(ListenstatusMask_, ch, true);
        if (Driver(ch).GetXilinxIpRxstatus()) {
            Assign(ListenchannelForbidden_, ch, true);
        }
    } else if (mode == kCanModeNormal) {
        Assign(ListenstatusMask_, ch, false);
    }
    return Driver(ch).SetControllerMode(mode);
}

int CanManage::SetSelfAckMode(int ch, int mode) {
    return Driver(ch).SetSelfAckMode(mode);
}

int CanManage::GetChannelStatus(int ch) {
    return Driver(ch).GetChannelStatus();
}

int CanManage::GetDeviceStatus(int ch) {
    return Test(statusMask_, ch);
}

int CanManage::GetListenStatus(int ch) {
    return Test(ListenstatusMask_, ch);
}

int CanManage::GetListenForbidden(int ch) const {
    return Test(ListenchannelForbidden_, ch);
}

void CanManage::ClearListenForbidden(int ch) {
    Assign(ListenchannelForbidden_, ch, false);
}

void CanManage::ClearAllStatus() {
    statusMask_ = 0;
    ListenstatusMask_ = 0;
}

// A file that cannot be opened is passed over, both ways: the bits matter for one frame a channel.
void CanManage::SaveListenForbiddenState() {
    std::ofstream file(forbiddenFile_, std::ios::trunc);
    file << ListenchannelForbidden_.load();
}

void CanManage::LoadListenForbiddenState() {
    std::ifstream file(forbiddenFile_);
    int bits = 0;
    if (file >> bits) {
        ListenchannelForbidden_ = bits;
    }
}

} // namespace Drivers
