#pragma once

#include "net/CanRequest.h"
#include "net/ZephCanComM.h"
#include "net/planner/CanFrameTime.h"
#include "net/planner/OffsetPlanner.h"

#include <cstdint>
#include <functional>
#include <span>
#include <unordered_set>
#include <vector>

#include <linux/can.h>

class ZephEventLoop;

namespace net {

class BcmMessage;

// The key of a task that lives in the broadcast manager. `type` rides along: one id of a channel is
// one task, of either kind.
struct CanInfo {
    canid_t canId; // with its flag bits
    uint8_t channel;
    CanFrameType type;

    bool operator==(const CanInfo& other) const {
        return canId == other.canId && channel == other.channel;
    }
};

struct CanInfoHash {
    size_t operator()(const CanInfo& info) const {
        return std::hash<canid_t>()(info.canId) << 1 ^ std::hash<uint8_t>()(info.channel);
    }
};

// A periodic task as a request asks for it.
struct CanTaskInfo {
    uint8_t channel = 0;
    canid_t can_id = 0; // with its flag bits
    bool is_extended = false;
    uint32_t period_ms = 0;
    CanFrameData frame_data;
};

// Turns host requests into CAN traffic. Single frames go to the raw socket of their channel;
// periodic ones are planned once, as a batch, and handed to the kernel's broadcast manager, which
// sends them without any help of this process. Lives on the main thread.
//
// Requests are service sections, gid and sid included, whose channel the caller has checked, with
// the bytes that follow them in the caller's buffer: entries are read as their count says, not as
// the request's length says. Where the buffer ends, the request does.
class CanSend {
  public:
    // `loop` counts on the first call only.
    static CanSend* GetInstance(ZephEventLoop* loop);

    // Opens the sockets of all channels.
    CanSend(ZephEventLoop* loop, ZephCanComM& canComM);
    CanSend(const CanSend&) = delete;
    CanSend& operator=(const CanSend&) = delete;

    void OpenAllSocket();

    // Ends all traffic: the kernel drops the periodic tasks with their sockets. The next batch
    // starts a time grid of its own; the plan so far stays.
    void CloseAllSocket();

    // Forgets which tasks live in the broadcast manager, once their sockets are closed.
    void ClearPeriodicSendTask();

    // Stops the tasks of period 0, then plans and starts the others as one batch.
    void SetPeriodicSendTask(std::span<const uint8_t> pReqSrv);

    // Sends every frame of a burst, or the one frame of a request.
    void SendMutiMessages(std::span<const uint8_t> pReqSrv);
    void SendSingleMessage(std::span<const uint8_t> pReqSrv);

    // See ZephCanComM.
    int WriteCallback(uint8_t canChannel, void* frame, int type, int potocol, int extend);

    // Start, update or, with a `period` of 0, stop a task. `period` in milliseconds, `offect` until
    // the first frame in microseconds. 0 or the errno of a failed write.
    int SetCANTask(uint8_t channel, can_frame frame, uint64_t period, uint64_t offect);
    int SetCANFDTask(uint8_t channel, canfd_frame frame, uint64_t period, uint64_t offect);

    ZephEventLoop* GetLoop() const { return loop_; }

  private:
    void Send(uint8_t channel, CanRequestFrame& entry);
    void StopTask(uint8_t channel, const CanFrameData& data);
    void scheduleNewTasks(const std::vector<CanTaskInfo>& new_tasks_info);
    void StartTask(const CanTaskInfo& info, const OffsetPlanner::Task& task);
    uint32_t FrameTimeUs(const CanTaskInfo& info);
    template <typename Frame>
    int SetTask(const CanInfo& info, const Frame& frame, uint64_t period, uint64_t offect);
    // Stops what cannot live beside the task. Gives the flags of its start, or of its update.
    uint32_t MakeRoom(const CanInfo& info);
    void Stop(CanInfo info);
    int Write(uint8_t channel, const BcmMessage& message);

    ZephEventLoop* loop_;
    ZephCanComM& canComM_;
    std::unordered_set<CanInfo, CanInfoHash> canInfoToCanMap; // tasks in the broadcast manager
    OffsetPlanner planner_;
};

} // namespace net
