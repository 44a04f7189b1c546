#include "app/VciServiceGroup.h"

#include "common/Config.h"
#include "drivers/UsbDriver.h"

VciGroupService::VciGroupService(ZephEventLoop* loop,
                                 const std::shared_ptr<ZephEventLoopThreadPool>& pool,
                                 const std::string& clearFlag)
    : VciService(loop),
      func_map{
          {DEV_CFG_SERVICE_GID, &VciGroupService::CommCfgGroupService},
          {LIN_MESSAGE_SERVICE_GID, &VciGroupService::LinMsgGroupService},
          {DATA_RECORD_SERVICE_GID, &VciGroupService::DataRecordGroupService},
          {DEVICE_SYNCHRONIZATION_SERVICE_GID, &VciGroupService::DevSyncGroupService},
          {CAN_REPLAY_SERVICE_GID, &VciGroupService::CanReplayGroupService},
          {IOADC_SERVICE_GID, &VciGroupService::IOADCGroupService},
          {NET_CONFIG_SERVICE_GID, &VciGroupService::NetCfgGroupService},
          {SEND_NET_FRAME_SERVICE_GID, &VciGroupService::NetSendMsgGroupService},
      },
      commCfgSrv_(loop, clearFlag),
      ethCfgSrv_(loop, clearFlag),
      recordSrv_(loop),
      devSyncSrv_(loop),
      sendSrv_(loop, pool),
      IOADCSrv_(*IOADCService::GetInstance(loop, -1)),
      CanReplaySrv_(loop),
      LinMsgSrv(loop),
      boundary_([this](uint8_t gid) { return func_map.count(static_cast<GroupId>(gid)) != 0; },
                kReqMsgSize) {}

void VciGroupService::Init() {
    ethCfgSrv_.Init();
    devSyncSrv_.Init();
    recordSrv_.Init();
}

void VciGroupService::HandleUsbEvent() {
    if (!boundary_.Begin()) {
        return;
    }
    uint8_t header[kFrameHeadSize] = {};
    const uint32_t got = Drivers::UsbDriver::GetInstance().UsbPeek(header);
    const uint32_t msgLen = serviceLenToMsgLen(UcharToUint(header + 1));
    if (got != kFrameHeadSize ||
        static_cast<int32_t>(msgLen) < static_cast<int32_t>(kFrameHeadSize)) {
        Refuse(msgLen, ERROR_LENGTH);
        return;
    }
    const auto group = func_map.find(static_cast<GroupId>(header[kFrameServiceOffset]));
    if (group == func_map.end()) {
        Refuse(msgLen, WRONG_GID);
        return;
    }
    if (msgLen > kReqMsgSize) {
        Refuse(msgLen, ERROR_LENGTH);
        return;
    }
    (this->*group->second)();
    boundary_.End(false);
}

// Skips the frame without a copy, whether or not it has arrived, and answers for the group object:
// its gid, sid and handle are always 0, since the header may be anything.
void VciGroupService::Refuse(uint32_t msgLen, NegtiveErrorCode code) {
    Drivers::UsbDriver::GetInstance().UsbReadNoCopy(static_cast<int>(msgLen));
    UsbNegtiveResponse(code);
    boundary_.End(true);
}

template <typename Service> void VciGroupService::Forward(Service& service) {
    service.usbDataNum = usbDataNum;
    service.HandleReadEvent();
}

void VciGroupService::CommCfgGroupService() {
    Forward(commCfgSrv_);
}

void VciGroupService::LinMsgGroupService() {
    Forward(LinMsgSrv);
}

void VciGroupService::DataRecordGroupService() {
    Forward(recordSrv_);
}

void VciGroupService::DevSyncGroupService() {
    Forward(devSyncSrv_);
}

void VciGroupService::CanReplayGroupService() {
    Forward(CanReplaySrv_);
}

void VciGroupService::IOADCGroupService() {
    Forward(IOADCSrv_);
}

void VciGroupService::NetCfgGroupService() {
    Forward(ethCfgSrv_);
}

void VciGroupService::NetSendMsgGroupService() {
    Forward(sendSrv_);
}
