#include "modules/NetCfgService.h"

#include "utils/CommandUtil.h"
#include "utils/Console.h"

#include <utility>

namespace {

constexpr uint8_t kClearAllConfigSid = 8;

constexpr uint8_t kFirstChannel = 8; // channel 0 in host messages
constexpr uint8_t kHighestTerminal = 2;

// Values of CanManage::SetControllerMode.
constexpr int kModeNormal = 0;
constexpr int kModeListen = 2;

} // namespace

NetCfgService::NetCfgService(ZephEventLoop* loop, std::string clearFlag)
    : VciService(loop),
      func_map{
          {SET_CAN_TIMEPARAM_SID, &NetCfgService::CanSetTimeParam},
          {SET_CAN_SECONDPOINT_SID, &NetCfgService::CanSetSecondSamplePoint},
          {SET_CAN_TERMINATION_SID, &NetCfgService::CanSetTermination},
          {SET_CAN_STATUS_SID, &NetCfgService::CanSetStatus},
          {SET_CAN_CONTROLLERMODE_SID, &NetCfgService::CanSetControllerMode},
      },
      canManager(Drivers::CanManage::GetInstance()),
      clearFlag_(std::move(clearFlag)) {}

void NetCfgService::Init() {
    const auto files = CommandUtil::GetInstance();
    if (!files->Exists(clearFlag_)) {
        return;
    }
    gid_ = DEV_CFG_SERVICE_GID;
    sid_ = kClearAllConfigSid;
    UsbTimeResponse();
    files->Rm(clearFlag_);
}

void NetCfgService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

// 0 to 5; anything else is out of range. A wire value below 8 wraps round to there.
uint8_t NetCfgService::Channel() const {
    return static_cast<uint8_t>(pReqSrv[2] - kFirstChannel);
}

void NetCfgService::CanSetTimeParam() {
    const uint8_t channel = Channel();
    const uint8_t type = pReqSrv[3];
    const uint8_t listen = pReqSrv[4];
    if (channel >= kCanChannels || type > 1 || listen > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    timeParam_.norminalParam = {pReqSrv[5], pReqSrv[6], pReqSrv[7], pReqSrv[8]};
    if (type == 1) {
        timeParam_.dataParam = {pReqSrv[9], pReqSrv[10], pReqSrv[11], pReqSrv[12]};
    }
    canManager.SetTimeParam(channel, type, &timeParam_);
    canManager.SetControllerMode(channel, listen == 0 ? kModeNormal : kModeListen);
    UsbShortResponse();
}

void NetCfgService::CanSetSecondSamplePoint() {
    const uint8_t channel = Channel();
    const uint8_t status = pReqSrv[3];
    const uint8_t offset = pReqSrv[4];
    if (channel >= kCanChannels || status > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    canManager.SetSecondarySamplePoint(channel, status, offset);
    UsbShortResponse();
}

void NetCfgService::CanSetTermination() {
    const uint8_t channel = Channel();
    const uint8_t terminal = pReqSrv[3];
    if (channel >= kCanChannels || terminal > kHighestTerminal) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    canManager.SetTerminal(channel, terminal);
    UsbShortResponse();
}

void NetCfgService::CanSetStatus() {
    const uint8_t channel = Channel();
    const uint8_t open = pReqSrv[3];
    if (channel >= kCanChannels || open > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    if (open == 1) {
        canManager.OpenDevice(channel);
    } else {
        canManager.CloseDevice(channel);
    }
    UsbTimeResponse();
}

void NetCfgService::CanSetControllerMode() {
    const uint8_t channel = Channel();
    const uint8_t listen = pReqSrv[3];
    if (channel >= kCanChannels || listen > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    const int ret = canManager.SetControllerMode(channel, listen == 0 ? kModeNormal : kModeListen);
    PrintLine("Set Can COntroller Mode: " + std::to_string(ret));
    UsbShortResponse();
}
