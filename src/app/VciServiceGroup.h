#pragma once

#include "app/FrameBoundary.h"
#include "common/VciService.h"
#include "modules/CommCfgGroup.h"
#include "modules/CommCfgService.h"
#include "modules/DataRecordService.h"
#include "modules/DevSyncService.h"
#include "modules/IOADCService.h"
#include "modules/NetCfgService.h"
#include "modules/VciCanReplayService.h"
#include "modules/VciLinMsgService.h"
#include "modules/VciSendService.h"

#include <map>
#include <memory>
#include <string>

class ZephEventLoop;
class ZephEventLoopThreadPool;

// Holds every host service and routes each frame to one of them by its group id. What it refuses
// itself it answers as group 0, service 0, handle 0. Lives on the main thread.
class VciGroupService : public VciService {
  public:
    // Every service gets `loop`; `pool`, not started yet, is for the services that deal out work.
    // `clearFlag` stands for kClearFlag.
    VciGroupService(ZephEventLoop* loop, const std::shared_ptr<ZephEventLoopThreadPool>& pool,
                    const std::string& clearFlag = kClearFlag);

    // Starts the services that need a start, once the USB channel is set up.
    void Init();

    // Takes the read ring as it is found, once it is mapped.
    void StartReading() { boundary_.Start(); }

    // Treats one frame of the read ring, or refuses it. Further frames wait for the next event.
    void HandleUsbEvent();

    // True while the ring holds nothing that a further event could treat before bytes arrive.
    bool WaitsForBytes() const { return boundary_.InDoubt(); }

  private:
    void Refuse(uint32_t msgLen, NegtiveErrorCode code);

    void CommCfgGroupService();
    void LinMsgGroupService();
    void DataRecordGroupService();
    void DevSyncGroupService();
    void CanReplayGroupService();
    void IOADCGroupService();
    void NetCfgGroupService();
    void NetSendMsgGroupService();
    template <typename Service> void Forward(Service& service);

    std::map<GroupId, void (VciGroupService::*)()> func_map;
    CommCfgService commCfgSrv_;
    NetCfgService ethCfgSrv_;
    DataRecordService recordSrv_;
    DevSyncService devSyncSrv_;
    VciSendService sendSrv_;
    IOADCService& IOADCSrv_; // the one that was in use at the start
    VciCanReplayService CanReplaySrv_;
    VciLinMsgService LinMsgSrv;
    FrameBoundary boundary_;
};
