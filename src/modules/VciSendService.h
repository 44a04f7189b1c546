#pragma once

#include "common/VciService.h"
#include "drivers/CanManage.h"
#include "net/CanSend.h"

#include <map>
#include <memory>
#include <span>

class ZephEventLoopThreadPool;

enum EthMsgSendGroup : uint8_t {
    CAN_SET_PERIOD_DATA = 51,
    CAN_SINGLE_SEND = 52,   // a burst, with an answer
    CAN_SET_RECV_DATA = 53, // one frame, without an answer
};

// Group 22. Sends CAN frames, once or periodically. Lives on the main thread.
class VciSendService : public VciService {
  public:
    VciSendService(ZephEventLoop* loop, std::shared_ptr<ZephEventLoopThreadPool> pool);

    void HandleReadEvent();

  private:
    void CanSetPeriodicSendTask();
    void CanSendMutiMessages();
    void CanSendSingleMessageNoResp();

    // True when the request's channel may send; otherwise the host has its refusal.
    bool CheckChannel();
    std::span<const uint8_t> Request() const;

    std::shared_ptr<ZephEventLoopThreadPool> pool_;
    std::map<EthMsgSendGroup, void (VciSendService::*)()> func_map;
    net::CanSend* canSend_;
    Drivers::CanManage& canManager;
};
