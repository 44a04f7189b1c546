#include "modules/CommCfgService.h"

#include "drivers/DevTimestamp.h"
#include "drivers/LinManage.h"
#include "hal/HalFactory.h"
#include "modules/BuildDate.h"
#include "modules/IOADCService.h"
#include "modules/LinSchedule/LinScheduleManager.h"
#include "net/ZephLinComM.h"
#include "utils/CommandUtil.h"
#include "utils/Console.h"
#include "utils/Logger.h"
#include "utils/WireFormat.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <linux/reboot.h>
#include <unistd.h>

namespace {

constexpr uint32_t kBareLength = 2; // gid, sid
constexpr int kVersionLength = 18;
constexpr int kBuildInfoLength = 15;
constexpr int kUidLength = 18;

constexpr uint8_t kBuildInfoIsDate = 2;

constexpr size_t kCidDigits = 32;

// The serial record: two characters that mark it, and the digits.
constexpr const char* kSerialPartition = "dev/mmcblk0p3";
constexpr std::streamoff kSerialOffset = 512; // bytes; the first block is left alone
constexpr std::string_view kSerialMark = "NV";
constexpr size_t kSerialDigits = 10;
constexpr long kSerialEnd = kSerialOffset + static_cast<long>(kSerialMark.size() + kSerialDigits);
constexpr uint32_t kSerialRequestLength = 2 + kSerialDigits; // gid and sid ahead

// Parameters of LinManage.
constexpr int kOpenRxParm = 1;
constexpr int kClearResponseParm = 2;

constexpr int kOrderlyClose = 0;
constexpr int kTerminationOff = 0;

uint8_t VersionByte(int value) {
    return static_cast<uint8_t>(value);
}

std::optional<uint8_t> HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<uint8_t>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<uint8_t>(c - 'a' + 10);
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<uint8_t>(c - 'A' + 10);
    }
    return std::nullopt;
}

} // namespace

CommCfgService::CommCfgService(ZephEventLoop* loop, std::string clearFlag, std::string cidFile)
    : VciService(loop),
      func_map{
          {RESET_DEV_SID, &CommCfgService::ResetDevice},
          {GET_DEV_VERSION_SID, &CommCfgService::GetDevVersion},
          {CLEAR_ALL_CONFIG_SID, &CommCfgService::ClearAllConfig},
          {GET_DEV_TIME_SID, &CommCfgService::GetDevTime},
          {GET_DEV_UUID, &CommCfgService::GetDevUID},
          {GET_DEV_BUILDINFO_SID, &CommCfgService::GetBuildInfo},
          {WRITE_SEQUENCE, &CommCfgService::WriteSequence},
      },
      canManager(Drivers::CanManage::GetInstance()),
      can_send(net::CanSend::GetInstance(loop_)),
      machine_(Hal::MakeMachine()),
      cidFile_(std::move(cidFile)),
      clearFlag_(std::move(clearFlag)) {}

void CommCfgService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

bool CommCfgService::CheckLength() {
    if (reqSrvLength != kBareLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return false;
    }
    return true;
}

void CommCfgService::ResetDevice() {
    VCI_LOG_INFO << "CommCfgService::ResetDevice";
    if (!CheckLength()) {
        return;
    }
    UsbTimeResponse();
    machine_->Sync();
    if (machine_->Reboot(LINUX_REBOOT_CMD_RESTART) < 0) {
        VCI_LOG_ERROR << "reboot faild"; // the host has been told that it works
    }
}

void CommCfgService::GetHardwareVersion(Version_& version) {
    version = {1, 2, 0};
}

void CommCfgService::GetsoftwareVersion(Version_& version) {
    version = {1, 2, 0};
}

void CommCfgService::GetKernelVersion(Version_& version) {
    version = {1, 2, 0};
}

void CommCfgService::GetDevVersion() {
    if (!CheckLength()) {
        return;
    }
    Version_ hardware{};
    Version_ kernel{};
    Version_ software{};
    GetHardwareVersion(hardware);
    GetKernelVersion(kernel);
    GetsoftwareVersion(software);
    WireWriter(std::span(pRespSrv, kVersionLength))
        .U8(gid_)
        .U8(sid_)
        .U8(VersionByte(hardware.majorVersionNum)) // its revision has no place here
        .U8(VersionByte(hardware.minorVersionNum))
        .U8(VersionByte(kernel.majorVersionNum))
        .U8(VersionByte(kernel.minorVersionNum))
        .U8(VersionByte(kernel.revisionVersionNum))
        .U8(VersionByte(software.majorVersionNum))
        .U8(VersionByte(software.minorVersionNum))
        .U8(VersionByte(software.revisionVersionNum))
        .U64(Drivers::DevTimestamp::GetInstance()->GetTimestamp());
    UsbPositiveResponse(kVersionLength);
}

void CommCfgService::GetDevTime() {
    if (CheckLength()) {
        UsbTimeResponse();
    }
}

void CommCfgService::GetBuildInfo() {
    if (!CheckLength()) {
        return;
    }
    const uint32_t date = GetBuildTime();
    WireWriter(std::span(pRespSrv, kBuildInfoLength))
        .U8(gid_)
        .U8(sid_)
        .U8(kBuildInfoIsDate)
        .U8(static_cast<uint8_t>(date >> 24)) // big-endian, unlike everything else of this group
        .U8(static_cast<uint8_t>(date >> 16))
        .U8(static_cast<uint8_t>(date >> 8))
        .U8(static_cast<uint8_t>(date))
        .U64(Drivers::DevTimestamp::GetInstance()->GetTimestamp());
    UsbPositiveResponse(kBuildInfoLength);
}

void CommCfgService::GetDevUID() {
    if (!CheckLength()) {
        return;
    }
    std::ifstream file(cidFile_);
    if (!file.is_open()) {
        UsbNegtiveResponse(NO_FILE);
        return;
    }
    std::string text(kCidDigits, '\0');
    file.read(text.data(), kCidDigits);
    if (file.gcount() < static_cast<std::streamsize>(kCidDigits)) {
        UsbNegtiveResponse(BUFFER_BUSY);
        return;
    }
    file.close();
    PrintLine("CommCfgService::GetDevUID read:" + text);
    uint8_t* const uid = pRespSrv + 2;
    for (size_t i = 0; i < kCidDigits; ++i) {
        const auto digit = HexDigit(text[i]);
        if (!digit) {
            UsbNegtiveResponse(
                OPEN_FILE_FAILED); // a character that is no hex digit has no code of its own
            return;
        }
        if (i % 2 == 0) {
            uid[i / 2] = static_cast<uint8_t>(*digit << 4);
        } else {
            uid[i / 2] = static_cast<uint8_t>(uid[i / 2] | *digit);
        }
    }
    pRespSrv[0] = gid_;
    pRespSrv[1] = sid_;
    UsbPositiveResponse(kUidLength);
}

void CommCfgService::WriteSequence() {
    if (reqSrvLength != kSerialRequestLength) {
        UsbNegtiveResponse(ERROR_LENGTH);
        return;
    }
    std::ofstream partition(kSerialPartition);
    if (!partition.is_open()) {
        PrintLine(std::string("CommCfgService::WriteSequence: cannot open ") + kSerialPartition);
        UsbNegtiveResponse(NO_FILE);
        return;
    }
    const std::string digits(pReqSrv + 2, pReqSrv + 2 + kSerialDigits);
    partition.seekp(kSerialOffset);
    partition << kSerialMark << digits;
    PrintLine(std::string("Serial Number: ").append(kSerialMark) + digits);
    AnswerSerial(partition.good(), partition.tellp());

    // Behind every answer, a refusal too: a card that is slow must not keep the host waiting. The
    // host is not told what comes of it.
    UniqueFd synced(open(kSerialPartition, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!synced) {
        perror("open failed");
        return;
    }
    partition.flush();
    fdatasync(synced.get());
    partition.close();
    // It stays open: as long as this process lives, the kernel then does not read the partition
    // table anew, and the record keeps its place. One is enough for that, however many serials a
    // host writes: each takes the place of the one before.
    serialPartition_ = std::move(synced);
}

// What counts is that the stream took all of the record.
void CommCfgService::AnswerSerial(bool good, long position) {
    if (!good) {
        PrintLine("Write failed.");
        UsbNegtiveResponse(SEQUENCE_WRITE_FAIL);
    } else if (position != kSerialEnd) {
        PrintLine("Write LENGTH ERROR.");
        UsbNegtiveResponse(SEQUENCE_WRITE_LENGTH_ERROR);
    } else {
        UsbShortResponse();
        PrintLine("Write successful.");
    }
}

void CommCfgService::ClearAllConfig() {
    VCI_LOG_INFO << "clear all config!";
    if (reqSrvLength != kBareLength) {
        // Not the end: whoever asks for a clear, however badly, gets it.
        VCI_LOG_INFO << "NegtiveErrorCode::ERROR_LENGTH";
        UsbNegtiveResponse(ERROR_LENGTH);
    }
    // What fails on the way does not keep the rest from being cleared.
    for (int channel = 0; channel < kLinChannels; ++channel) {
        ClearLin(channel);
    }
    can_send->CloseAllSocket();
    can_send->ClearPeriodicSendTask();
    for (int channel = 0; channel < kCanChannels; ++channel) {
        if (Drivers::CanManage::GetDeviceStatus(channel) > 0) {
            canManager.CloseDevice(channel);
        }
        canManager.SetTerminal(channel, kTerminationOff);
    }
    canManager.ClearAllStatus();
    IOADCService::GetInstance(loop_, -1)->IoAdcCleanup();
    CommandUtil::GetInstance()->Create(clearFlag_);
    machine_->Raise(SIGTERM);
}

void CommCfgService::ClearLin(int channel) {
    auto& schedules = LinScheduleManager::GetInstance();
    auto& device = Drivers::LinManage::GetInstance();
    lin_operation operation{};
    operation.ot = CONFIG_DISTURB;
    operation.data.lin_dis.reset = 1;

    schedules.stopExecutor(channel);
    schedules.clearTable(channel);
    schedules.clearResMsg(channel);
    schedules.setStatus(channel, false);
    device.ParmCfg(channel, kClearResponseParm, 1);
    device.ParmCfg(channel, kOpenRxParm, 0);
    device.OperationCfg(channel, &operation);
    ZephLinComM::GetInstance().LinComMClose(static_cast<uint8_t>(channel), kOrderlyClose);
    device.CloseDevice(channel);
}
