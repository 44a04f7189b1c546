#pragma once

#include "base/ZephChannel.h"
#include "common/VciService.h"
#include "drivers/DevTimeSync.h"
#include "utils/UniqueFd.h"

#include <map>

enum DevSyncGroup : uint8_t {
    SET_SOFTWARE_SYNC_REQUST_SID = 1,
    SET_SOFTWARE_SYNC_FOLLOWUP_SID = 2,
    CFG_HARDWARE_STNC_NODE_SID = 3,
    SET_HARDWARE_STNC_NODE_SID = 4,
};

// Group 16. The host compares its clock with the device's, and drives the hardware sync line; a
// drop of that line is uploaded. Lives on the main thread.
class DevSyncService : public VciService {
  public:
    explicit DevSyncService(ZephEventLoop* loop);
    ~DevSyncService();

    // Puts the sync line into its first state and starts watching it.
    void Init();

    void HandleReadEvent();

    // The sync line has dropped: an upload, and the red lamp. A second later the state goes down;
    // a state that was down already leaves the lamp as it is.
    void SyncUploadErrorCb();

  private:
    void SyncRequest();
    void SyncFollowUp();
    void SetHardwareSyncNode();
    void StartStopTimeSync();
    void StartTimer();
    void HandleTimer();
    void RestSyncLink();

    std::map<DevSyncGroup, void (DevSyncService::*)()> func_map;
    Drivers::DevTimeSync sync_;
    UniqueFd timer_fd_;
    ZephChannel syncLinkChannel_;
    ZephChannel timerChannel_;
};
