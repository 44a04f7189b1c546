#include "modules/DataRecordService.h"

#include "drivers/DevManager.h"
#include "drivers/LinManage.h"
#include "drivers/UsbDriver.h"
#include "modules/LinSchedule/LinScheduleManager.h"
#include "utils/Console.h"
#include "utils/Logger.h"
#include "versions/VersionManager.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <string_view>

#include <net/if.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

// Channel codes in records and requests.
constexpr int kFirstLinCode = 50;
constexpr int kLastLinCode = kFirstLinCode + kLinChannels - 1;

constexpr uint32_t kSwitchLength = 4;
constexpr uint8_t kMostLinSwitches = 1; // entries of a request

constexpr int kLinReceive = 1; // LinManage's parameter for the capture of received frames

// From the last wake-up on a LIN bus to the start of its schedule.
constexpr int kWakeupDelay = 800; // ms

constexpr uint64_t kMergeThreshold = 1'000'000; // ns that a packet waits for older ones

// Text for standard output that a signal handler may build and print: no allocation, no stream.
class SignalText {
  public:
    SignalText& Append(std::string_view part) {
        const size_t taken = std::min(part.size(), text_.size() - used_);
        std::copy_n(part.data(), taken, text_.data() + used_);
        used_ += taken;
        return *this;
    }

    SignalText& Append(uint64_t number) {
        char digits[20];
        const char* end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
        return Append({digits, static_cast<size_t>(end - digits)});
    }

    void Print() const {
        // A console that takes no more is no reason to stop.
        static_cast<void>(!write(STDOUT_FILENO, text_.data(), used_));
    }

  private:
    std::array<char, 256> text_;
    size_t used_ = 0;
};

} // namespace

DataRecordService::DataRecordService(ZephEventLoop* loop, const std::string& chrDevices)
    : VciService(loop),
      func_map{
          {CFG_ETH_REC_SWITCH_SID, &DataRecordService::CfgEthRecordSwitch},
          {CFG_LIN_REC_SWITCH_SID, &DataRecordService::CfgLinRecordSwitch},
      },
      chrDevices_(chrDevices),
      canRecord_(Drivers::CanManage::GetInstance(), errBuffer_),
      linRecord_([this](int linChannel) {
          linChannel_ = linChannel;
          StartTimer(kWakeupDelay);
      }),
      timer_fd_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      linWakeupChannel_(loop, timer_fd_.get()) {}

DataRecordService::~DataRecordService() {
    capturer_.StopCapturer();
    linWakeupChannel_.remove();
    const uint64_t dropped = capturer_.TruncatedPackets() + canRecord_.MalformedPackets() +
                             linRecord_.MalformedPackets();
    if (dropped != 0) {
        VCI_LOG_WARN << "recording: " << dropped << " packets of a wrong form were dropped";
    }
}

void DataRecordService::Init() {
    signal(SIGINT, printCanFrameNum);
    capturer_.SetHandlePacketCallBack(
        [this](const pcap_pkthdr* pkthdr, const u_char* packet, int index) {
            UsbUploadCallback(pkthdr, packet, index);
        });
    for (size_t channel = 0; channel < errBuffer_.size(); ++channel) {
        if (!errBuffer_[channel].Open(chrDevices_ + std::to_string(channel))) {
            return;
        }
    }
    linWakeupChannel_.setReadCallback([this](ZephTimestamp) { LinWakeupCb(); });
    linWakeupChannel_.enableReading();
    InitAllChannelDevInfo();
    packetMerger_ = std::make_shared<PacketMerger>(
        loop_, VersionManager::GetInstance().GetEthPhyConfig()->GetMaxEthChannel(), kMergeThreshold,
        [this](const std::shared_ptr<Packet>& packet) { WriteUsb(packet); });
    capturer_.StartCapturer();
}

void DataRecordService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

void DataRecordService::InitAllChannelDevInfo() {
    const auto& names = Drivers::DevManager::GetInstance();
    const int ethChannels = VersionManager::GetInstance().GetEthPhyConfig()->GetMaxEthChannel();
    for (int channel = 0; channel < ethChannels; ++channel) {
        MapInterface(names.GetEthDevName(channel, true), channel, 0);
        MapInterface(names.GetEthDevName(channel, false), channel, 1);
    }
    for (int channel = 0; channel < kCanChannels; ++channel) {
        MapInterface(names.GetCanDevName(channel), channel + kFirstCanCode, 1);
    }
    for (int channel = 0; channel < kLinChannels; ++channel) {
        const std::string name = names.GetLinDevName(channel);
        MapInterface(name, channel + kFirstLinCode, 1);
        PrintLine("inti listen LIN channel:" + name +
                  " ;index:" + std::to_string(if_nametoindex(name.c_str())));
    }
}

// An interface that does not exist now stands under index 0, which no packet has: its channel is
// switched without effect until the next start.
void DataRecordService::MapInterface(const std::string& name, int code, uint8_t direction) {
    channelInfo_[if_nametoindex(name.c_str())] = {static_cast<uint8_t>(code), direction};
}

void DataRecordService::CfgEthRecordSwitch() {
    if (reqSrvLength != kSwitchLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return;
    }
    // In spite of the request's name these are the CAN channels, the only ones that hosts switch
    // this way.
    const uint8_t channel = pReqSrv[2];
    if (!CanChannelOfCode(channel)) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    const uint8_t channelSwitch = pReqSrv[3];
    if (channelSwitch > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    for (const auto& [index, info] : channelInfo_) {
        if (info.code == channel) {
            capturer_.SetNetworkMonitor(static_cast<int>(index), channelSwitch != 0);
        }
    }
    UsbTimeResponse();
}

// The length is not looked at: a request that is short reads what an earlier one has left. What was
// done before a failure stays done.
void DataRecordService::CfgLinRecordSwitch() {
    const uint8_t entries = pReqSrv[2];
    if (entries > kMostLinSwitches) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    for (size_t entry = 0; entry < entries; ++entry) {
        const uint8_t channel = pReqSrv[3 + 2 * entry];
        const uint8_t channelSwitch = pReqSrv[4 + 2 * entry];
        if (Drivers::LinManage::GetDeviceStatus(channel) == 0) {
            UsbNegtiveResponse(SERVICE_WRONG_SEQUENCE);
            return;
        }
        for (const auto& [index, info] : channelInfo_) {
            if (info.code != kFirstLinCode + channel) {
                continue;
            }
            capturer_.SetNetworkMonitor(static_cast<int>(index), channelSwitch != 0);
            PrintLine("if index is " + std::to_string(index) + ",lin channel is " +
                      std::to_string(info.code) + ", direction is " +
                      std::to_string(info.direction));
            if (Drivers::LinManage::GetInstance().ParmCfg(channel, kLinReceive, channelSwitch) <
                0) {
                UsbNegtiveResponse(UPDATE_CONFIG_ERROR);
                return;
            }
        }
    }
    UsbTimeResponse();
}

// A further call starts the time anew.
void DataRecordService::StartTimer(int ms) {
    char text[64];
    snprintf(text, sizeof(text), "DataRecordService::StartTimer set timer%d", ms);
    PrintLine(text);
    itimerspec time{};
    time.it_value.tv_sec = ms / 1000;
    time.it_value.tv_nsec = ms % 1000 * 1'000'000L;
    timerfd_settime(timer_fd_.get(), 0, &time, nullptr);
}

void DataRecordService::LinWakeupCb() {
    PrintLine("DataRecordService::LinWakeupCb cb call");
    uint64_t expirations = 0;
    if (read(timer_fd_.get(), &expirations, sizeof(expirations)) < 0) {
        return; // another wake-up has armed it again meanwhile: its time is still to come
    }
    const int channel = linChannel_;
    auto& schedules = LinScheduleManager::GetInstance();
    if (schedules.getStatus(channel) && !schedules.getExecutorStatus(channel)) {
        schedules.startExecutor(channel);
    }
}

void DataRecordService::WriteUsb(const std::shared_ptr<Packet>& packet) {
    Drivers::UsbDriver::GetInstance().UsbWrite(packet->buf.get(),
                                               static_cast<uint32_t>(packet->length));
}

void DataRecordService::UsbUploadCallback(const pcap_pkthdr* pkthdr, const u_char* packet,
                                          int index) {
    const auto channel = channelInfo_.find(static_cast<unsigned int>(index));
    if (channel == channelInfo_.end()) {
        return;
    }
    const uint8_t code = channel->second.code;
    if (CanChannelOfCode(code)) {
        canRecord_.CanPacketCooked(pkthdr, packet);
    } else if (code >= kFirstLinCode && code <= kLastLinCode) {
        linRecord_.LinPacketCooked(pkthdr, packet, code - kFirstLinCode);
    }
}

void printCanFrameNum(int /*signal*/) {
    const int savedErrno = errno;
    SignalText text;
    for (size_t channel = 0; channel < CanFrameNum.size(); ++channel) {
        text.Append("CAN Channel ").Append(channel).Append(": ");
        text.Append(CanFrameNum[channel].load()).Append("\n");
    }
    text.Print();
    signal(SIGINT, SIG_DFL);
    errno = savedErrno;
}
