#include "modules/VciLinMsgService.h"

#include "modules/LinRequest.h"
#include "modules/LinSchedule/LinFrame.h"
#include "modules/LinSchedule/LinSlot.h"
#include "utils/Console.h"
#include "utils/Logger.h"

#include <string>

#include <sys/timerfd.h>
#include <unistd.h>

namespace {

// Parameters of LinManage.
constexpr int kModeParm = 0;
constexpr int kClearResponseParm = 2;

constexpr int kOrderlyClose = 0;

constexpr size_t kEntries = 4; // offset behind a count

// Of a single frame and of a response alike.
constexpr auto kWriteFail = "VciLinMsgService::SingleMsgSend : write fail";

constexpr uint8_t kSleep = 0;
constexpr uint8_t kWakeup = 1;

// The longest frame, and the least time in which it is on the bus.
constexpr int kLongestFrame = 8;         // bytes
constexpr uint16_t kLeastSleepDelay = 1; // ms

constexpr uint32_t kMicrosecondsPerMillisecond = 1000;
constexpr long kNanosecondsPerMicrosecond = 1000;

} // namespace

VciLinMsgService::VciLinMsgService(ZephEventLoop* loop)
    : VciService(loop),
      func_map{
          {DL_EXEC_TABLE_SID, &VciLinMsgService::DownloadExecTable},
          {CFG_PULL_UP_SID, &VciLinMsgService::CfgPullUp},
          {SET_SEND_SID, &VciLinMsgService::SetSend},
          {DEL_SEND_SID, &VciLinMsgService::DelSend},
          {SET_CLN_SID, &VciLinMsgService::SetClean},
          {DISPATCH_TABLE_SID, &VciLinMsgService::ExecTable},
          {SINGLE_MSG_SEND_SID, &VciLinMsgService::SingleMsgSend},
          {WAKEUP_SLEEP_SID, &VciLinMsgService::WakeupSleepMsg},
          {DISTURB_MSG_SID, &VciLinMsgService::DisturbMsg},
          {CHANNEL_CONFIG_SID, &VciLinMsgService::LinChannelConfig},
      },
      linManage(Drivers::LinManage::GetInstance()),
      linComM(ZephLinComM::GetInstance()),
      scheduleManager(LinScheduleManager::GetInstance()),
      timer_fd_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      sleepChannel_(loop, timer_fd_.get()) {
    sleepChannel_.setReadCallback([this](ZephTimestamp) { SleepCallBack(); });
    sleepChannel_.enableReading();
}

VciLinMsgService::~VciLinMsgService() {
    sleepChannel_.remove();
}

void VciLinMsgService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

bool VciLinMsgService::CheckLength(bool holds, const char* handler) {
    if (!holds) {
        Fail(std::string("VciLinMsgService::") + handler + " length error", ERROR_LENGTH);
    }
    return holds;
}

bool VciLinMsgService::CheckChannel() {
    if (pReqSrv[2] >= kLinChannels) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return false;
    }
    return true;
}

bool VciLinMsgService::CheckOpen() {
    if (!CheckChannel()) {
        return false;
    }
    if (Drivers::LinManage::GetDeviceStatus(pReqSrv[2]) == 0) {
        UsbNegtiveResponse(SERVICE_WRONG_SEQUENCE);
        return false;
    }
    return true;
}

void VciLinMsgService::Fail(const std::string& text, NegtiveErrorCode code) {
    PrintLine(text);
    UsbNegtiveResponse(code);
}

int VciLinMsgService::SendMessage(uint8_t channel, const lin_tx_message& message) {
    const canfd_frame frame = MakeLinFrame(message.lin_frame.pid, message);
    return linComM.WriteCallback(channel, &frame);
}

uint32_t VciLinMsgService::CalcDelay(int channel, int dlc, uint16_t delay_ms) const {
    return LinSlotLength(linManage.getBaudrate(channel), dlc,
                         delay_ms * kMicrosecondsPerMillisecond);
}

void VciLinMsgService::DownloadExecTable() {
    if (!CheckOpen()) {
        return;
    }
    const uint8_t channel = pReqSrv[2];
    WireReader entries = Request(kEntries);
    for (int left = pReqSrv[3]; left > 0; --left) {
        auto [message, slot] = ReadLinTableEntry(entries);
        const uint8_t pid = message.lin_frame.pid;
        const uint32_t delay = CalcDelay(channel, message.lin_frame.dlc, slot);
        scheduleManager.setResMsg(channel, pid, &message);
        if (scheduleManager.addToStandbyTable(channel, delay, slot, &message) < 0) {
            Fail("LinTable::addItem ID: " + std::to_string(pid) + " add fail", UPDATE_CONFIG_ERROR);
            return;
        }
    }
    scheduleManager.setNewTable(channel);
    UsbShortResponse();
}

void VciLinMsgService::CfgPullUp() {
    if (!CheckLength(reqSrvLength > 3, "CfgPullUp")) {
        return;
    }
    if (pReqSrv[2] >= kLinChannels) {
        PrintLine("LIN linChannel error");
    }
    if (!CheckOpen()) {
        return;
    }
    const uint8_t channel = pReqSrv[2];
    const uint8_t role = pReqSrv[3];
    if (scheduleManager.setStatus(channel, role != 0) < 0) {
        Fail("LIN setStatus error", SERVICE_WRONG_SEQUENCE);
        return;
    }
    if (linManage.ParmCfg(channel, kModeParm, role) < 0) {
        Fail("LIN ParmCfg error", UPDATE_CONFIG_ERROR);
        return;
    }
    UsbShortResponse();
}

void VciLinMsgService::SetSend() {
    if (!CheckOpen()) {
        return;
    }
    const uint8_t channel = pReqSrv[2];
    if (scheduleManager.getExecutorStatus(channel)) {
        scheduleManager.stopExecutor(channel);
    }
    WireReader entries = Request(kEntries);
    for (int left = pReqSrv[3]; left > 0; --left) {
        const auto [message, length, data] = ReadLinResponseEntry(entries);
        scheduleManager.setResMsg(channel, message.lin_frame.pid, length, data.data());
        if (!scheduleManager.getStatus(channel) && SendMessage(channel, message) < 0) {
            Fail(kWriteFail, UPDATE_CONFIG_ERROR); // a schedule stays stopped
            return;
        }
    }
    // Also where the schedule was stopped: hosts set the responses last and rely on the start.
    scheduleManager.startExecutor(channel);
    UsbShortResponse();
}

void VciLinMsgService::DelSend() {
    if (!CheckOpen()) {
        return;
    }
    const uint8_t channel = pReqSrv[2];
    WireReader entries = Request(kEntries);
    for (int left = pReqSrv[3]; left > 0; --left) {
        const uint8_t pid = LinGetPID(entries.U8());
        scheduleManager.delResMsg(channel, pid, true);
        if (!scheduleManager.getStatus(channel) && SendMessage(channel, LinNoResponse(pid)) < 0) {
            Fail(kWriteFail, UPDATE_CONFIG_ERROR);
            return;
        }
    }
    UsbShortResponse();
}

void VciLinMsgService::SetClean() {
    if (!CheckLength(reqSrvLength > 3, "SetClean") || !CheckOpen()) {
        return;
    }
    const int channel = pReqSrv[2];
    const uint8_t what = pReqSrv[3];
    const bool table = what == 0 || what == 2;
    const bool responses = what == 1 || what == 2;
    if (table || responses) {
        scheduleManager.stopExecutor(channel);
    }
    if (table) {
        scheduleManager.clearTable(channel);
    }
    if (responses) {
        ForgetResponses(channel);
    }
    UsbShortResponse();
}

void VciLinMsgService::ForgetResponses(int channel) {
    scheduleManager.clearResMsg(channel);
    if (!scheduleManager.getStatus(channel)) {
        // The answer is positive in any case; a refusal is told on standard error.
        static_cast<void>(linManage.ParmCfg(channel, kClearResponseParm, 1));
    }
}

void VciLinMsgService::ExecTable() {
    if (!CheckLength(reqSrvLength == 4, "ExecTable") || !CheckOpen()) {
        return;
    }
    const int channel = pReqSrv[2];
    switch (pReqSrv[3]) {
    case 0:
        scheduleManager.stopExecutor(channel);
        break;
    case 1:
        scheduleManager.startExecutor(channel);
        break;
    default:
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    UsbShortResponse();
}

void VciLinMsgService::SingleMsgSend() {
    if (!CheckLength(reqSrvLength > 35, "SingleMsgSend") || !CheckOpen()) {
        return;
    }
    WireReader request = Request(3);
    const auto message = ReadLinSingle(request);
    if (!message) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    if (SendMessage(pReqSrv[2], *message) < 0) {
        Fail(kWriteFail, SEND_FAIL);
        return;
    }
    UsbShortResponse();
}

void VciLinMsgService::WakeupSleepMsg() {
    if (!CheckLength(reqSrvLength > 10, "WakeupSleepMsg") || !CheckOpen()) {
        return;
    }
    const int channel = pReqSrv[2];
    const uint8_t value = pReqSrv[4];
    // A commander puts the bus to sleep, and a responder wakes it.
    if (value == (scheduleManager.getStatus(channel) ? kWakeup : kSleep)) {
        UsbNegtiveResponse(ERROR_GET_CHANNEL_STATE);
        return;
    }
    WireReader request = Request(4);
    const lin_operation operation = ReadLinWakeup(request);
    switch (value) {
    case kWakeup:
        if (linManage.OperationCfg(channel, &operation) < 0) { // a channel that has closed
            Fail("VciLinMsgService::SleepCallBack fail ", SERVICE_WRONG_SEQUENCE);
            return;
        }
        break;
    case kSleep:
        scheduleManager.stopExecutor(channel);
        linChannel_sleep_ = channel;
        lin_opt_sleep = operation;
        SetTimer(); // the frame on the bus ends first
        break;
    default:
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    UsbShortResponse();
}

void VciLinMsgService::SetTimer() {
    const uint32_t delay_us = CalcDelay(linChannel_sleep_, kLongestFrame, kLeastSleepDelay);
    PrintLine("VciLinMsgService::SetTimer delay_us:" + std::to_string(delay_us));
    itimerspec time{};
    time.it_value.tv_nsec = delay_us * kNanosecondsPerMicrosecond;
    if (timerfd_settime(timer_fd_.get(), 0, &time, nullptr) < 0) {
        // A second and more, at a bit rate that no LIN bus has.
        VCI_LOG_WARN << "LIN" << linChannel_sleep_ << ": the bus is not put to sleep, since a frame"
                     << " takes " << delay_us << " us at the bit rate that was set";
    }
}

void VciLinMsgService::SleepCallBack() {
    uint64_t expirations = 0;
    if (read(timer_fd_.get(), &expirations, sizeof(expirations)) < 0) {
        return; // another request has armed it again meanwhile: its time is still to come
    }
    if (linManage.OperationCfg(linChannel_sleep_, &lin_opt_sleep) < 0) {
        PrintLine("VciLinMsgService::SleepCallBack fail ");
    } else {
        PrintLine("VciLinMsgService::SleepCallBack timeout");
    }
}

void VciLinMsgService::DisturbMsg() {
    if (!CheckLength(reqSrvLength > 12, "DisturbMsg") || !CheckOpen()) {
        return;
    }
    WireReader request = Request(3);
    const lin_operation operation = ReadLinDisturb(request);
    if (linManage.OperationCfg(pReqSrv[2], &operation) < 0) { // a channel that has closed
        Fail("VciLinMsgService::LinChannelConfig fail ", SEND_FAIL);
        return;
    }
    UsbShortResponse();
}

// A running schedule is left alone: hosts stop it before they close or configure the channel.
void VciLinMsgService::LinChannelConfig() {
    if (!CheckLength(reqSrvLength > 7, "LinChannelConfig") || !CheckChannel()) {
        return;
    }
    const int channel = pReqSrv[2];
    switch (pReqSrv[3]) {
    case 0:
        CloseChannel(channel);
        break;
    case 1:
        OpenChannel(channel);
        break;
    default:
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        break;
    }
}

void VciLinMsgService::OpenChannel(int channel) {
    const auto socket = static_cast<uint8_t>(channel);
    if (Drivers::LinManage::GetDeviceStatus(channel) == 1) {
        if (linComM.LinComMClose(socket, kOrderlyClose) < 0) {
            Fail("VciLinMsgService::LinChannelConfig - again close socket fail: ",
                 ERROR_GET_CHANNEL_STATE);
            return;
        }
        if (linManage.CloseDevice(channel) < 0) {
            Fail("VciLinMsgService::LinChannelConfig - again close device fail: ",
                 ERROR_GET_CHANNEL_STATE);
            return;
        }
    }
    if (linManage.OpenDevice(channel) < 0) {
        Fail("VciLinMsgService::LinChannelConfig - open device fail: ", ERROR_GET_CHANNEL_STATE);
        return;
    }
    if (linComM.LinComMOpen(socket) < 0) {
        Fail("VciLinMsgService::LinChannelConfig - open socket fail: ", ERROR_GET_CHANNEL_STATE);
        return;
    }
    WireReader request = Request(4);
    const lin_operation operation = ReadLinConfig(request);
    if (linManage.ChannelCfg(channel, &operation) < 0) {
        Fail("VciLinMsgService::LinChannelConfig fail ", UPDATE_CONFIG_ERROR);
        return;
    }
    UsbShortResponse();
}

void VciLinMsgService::CloseChannel(int channel) {
    if (linComM.LinComMClose(static_cast<uint8_t>(channel), kOrderlyClose) < 0) {
        Fail("VciLinMsgService::LinChannelConfig - close socket fail: ", ERROR_GET_CHANNEL_STATE);
        return;
    }
    if (linManage.CloseDevice(channel) < 0) {
        Fail("VciLinMsgService::LinChannelConfig - close device fail: ", ERROR_GET_CHANNEL_STATE);
        return;
    }
    UsbShortResponse();
}
