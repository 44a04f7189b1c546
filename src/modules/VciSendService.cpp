#include "modules/VciSendService.h"

#include "base/ZephEventLoopThreadPool.h"

#include <utility>

VciSendService::VciSendService(ZephEventLoop* loop, std::shared_ptr<ZephEventLoopThreadPool> pool)
    : VciService(loop),
      pool_(std::move(pool)),
      func_map{
          {CAN_SET_PERIOD_DATA, &VciSendService::CanSetPeriodicSendTask},
          {CAN_SINGLE_SEND, &VciSendService::CanSendMutiMessages},
          {CAN_SET_RECV_DATA, &VciSendService::CanSendSingleMessageNoResp},
      },
      // The pool has not started, so this is the base loop.
      canSend_(net::CanSend::GetInstance(pool_->getNextLoop())),
      canManager(Drivers::CanManage::GetInstance()) {}

void VciSendService::HandleReadEvent() {
    HandleRequest(*this, func_map);
}

bool VciSendService::CheckChannel() {
    const auto index = CanChannelOfCode(pReqSrv[2]);
    if (!index) {
        UsbNegtiveResponse(VALUE_OUTOF_RANGE);
        return false;
    }
    if (canManager.GetDeviceStatus(*index) != 1) {
        UsbNegtiveResponse(SERVICE_WRONG_SEQUENCE);
        return false;
    }
    if (canManager.GetListenStatus(*index) > 0) {
        UsbNegtiveResponse(CAN_SENDFRAME_WITH_ACKOFF_MODE);
        return false;
    }
    return true;
}

// The section and what an earlier request has left behind it: the count of entries rules.
std::span<const uint8_t> VciSendService::Request() const {
    return std::span(reqMsgData).subspan(kFrameServiceOffset);
}

void VciSendService::CanSetPeriodicSendTask() {
    if (!CheckChannel()) {
        return;
    }
    UsbTimeResponse(); // before the planning, which may take a while
    canSend_->SetPeriodicSendTask(Request());
}

void VciSendService::CanSendMutiMessages() {
    if (!CheckChannel()) {
        return;
    }
    canSend_->SendMutiMessages(Request());
    UsbTimeResponse(); // the time when all frames are with the driver
}

void VciSendService::CanSendSingleMessageNoResp() {
    if (!CheckChannel()) {
        return;
    }
    canSend_->SendSingleMessage(Request());
}
