#include "modules/NetCfgService.h"

#include "utils/CommandUtil.h"
#include "utils/Console.h"

#include <utility>

namespace {

constexpr uint8_t kHighestTerminal = 2;

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
    sid_ = CLEAR_ALL_CONFIG_SID;
    UsbTimeResponse();
    files->Rm(clearFlag_);
}

void NetCfgService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

std::optional<uint8_t> NetCfgService::CheckedChannel(uint8_t highest) {
    const auto channel = CanChannelOfCode(pReqSrv[2]);
    if (!channel || pReqSrv[3] > highest) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return std::nullopt;
    }
    return channel;
}

void NetCfgService::CanSetTimeParam() {
    const auto channel = CheckedChannel(1);
    if (!channel) {
        return;
    }
    const uint8_t type = pReqSrv[3];
    const uint8_t listen = pReqSrv[4];
    if (listen > 1) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return;
    }
    timeParam_.norminalParam = {pReqSrv[5], pReqSrv[6], pReqSrv[7], pReqSrv[8]};
    if (type == 1) {
        timeParam_.dataParam = {pReqSrv[9], pReqSrv[10], pReqSrv[11], pReqSrv[12]};
    }
    canManager.SetTimeParam(*channel, type, &timeParam_);
    canManager.SetControllerMode(*channel, listen == 0 ? kCanModeNormal : kCanModeListen);
    UsbShortResponse();
}

void NetCfgService::CanSetSecondSamplePoint() {
    const auto channel = CheckedChannel(1);
    if (!channel) {
        return;
    }
    canManager.SetSecondarySamplePoint(*channel, pReqSrv[3], pReqSrv[4]);
    UsbShortResponse();
}

void NetCfgService::CanSetTermination() {
    const auto channel = CheckedChannel(kHighestTerminal);
    if (!channel) {
        return;
    }
    canManager.SetTerminal(*channel, pReqSrv[3]);
    UsbShortResponse();
}

void NetCfgService::CanSetStatus() {
    const auto channel = CheckedChannel(1);
    if (!channel) {
        return;
    }
    if (pReqSrv[3] == 1) {
        canManager.OpenDevice(*channel);
    } else {
        canManager.CloseDevice(*channel);
    }
    UsbTimeResponse();
}

void NetCfgService::CanSetControllerMode() {
    const auto channel = CheckedChannel(1);
    if (!channel) {
        return;
    }
    const int ret =
        canManager.SetControllerMode(*channel, pReqSrv[3] == 0 ? kCanModeNormal : kCanModeListen);
    PrintLine("Set Can COntroller Mode: " + std::to_string(ret));
    UsbShortResponse();
}
