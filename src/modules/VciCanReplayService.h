#pragma once

#include "common/VciService.h"
#include "drivers/CanManage.h"
#include "modules/CanReplayThread.h"

#include <cstdint>
#include <map>
#include <span>

// Group 18. Takes a recorded CAN trace in batches and plays it with the recorded spacing. Each
// request but a batch is answered with gid and sid; a batch is answered by the ready signal that
// asks for the next one, or by a refusal. Lives on the main thread; CanReplayThread sends.
class VciCanReplayService : public VciService {
  public:
    explicit VciCanReplayService(ZephEventLoop* loop);
    ~VciCanReplayService();

    void HandleReadEvent();

  private:
    void DownloadReplayData();
    void ReplayFinish();
    void ReplayCancel();
    void ReplayPause();
    void ReplayContinue();

    // Queues the frames of a batch and plays them. What was queued before a fault stays queued.
    NegtiveErrorCode AnalyReplayFrame(std::span<const uint8_t> request);

    // The common begin of the other requests. False when one lacks its sid; the host then has its
    // refusal.
    bool BeginCommand();

    // Before a request is acted on: the thread names the last one in what it sends.
    void NameLastRequest();

    std::map<CanReplayGroup, void (VciCanReplayService::*)()> func_map;
    Drivers::CanManage& canManager;
    CanReplayThread player_;
};
