#pragma once

#include "base/ZephChannel.h"
#include "common/VciService.h"
#include "drivers/LinManage.h"
#include "modules/LinSchedule/LinScheduleManager.h"
#include "net/ZephLinComM.h"
#include "utils/UniqueFd.h"
#include "utils/WireFormat.h"

#include <cstdint>
#include <map>
#include <span>
#include <string>

enum LinMsgGroup : uint8_t {
    DL_EXEC_TABLE_SID = 1,
    CFG_PULL_UP_SID = 2, // sets the role, in spite of its name
    SET_SEND_SID = 3,
    DEL_SEND_SID = 4,
    SET_CLN_SID = 5,
    DISPATCH_TABLE_SID = 6,
    SINGLE_MSG_SEND_SID = 7,
    WAKEUP_SLEEP_SID = 8,
    DISTURB_MSG_SID = 9,
    CHANNEL_CONFIG_SID = 10,
};

// Group 6. Configures the LIN channels, downloads and runs their schedules, sets responses and
// sends single frames; puts the bus to sleep when the frame on it has ended. Every positive answer
// is gid and sid; why a request was refused is told on standard output. Lives on the main thread.
class VciLinMsgService : public VciService {
  public:
    explicit VciLinMsgService(ZephEventLoop* loop);
    ~VciLinMsgService();

    void HandleReadEvent();

  private:
    // Those that count entries read as many as the count says, without a look at the length: where
    // a request is short, they read what an earlier one has left in the buffer.
    void DownloadExecTable();
    void CfgPullUp();
    void SetSend();
    void DelSend();
    void SetClean();
    void ExecTable();
    void SingleMsgSend();
    void WakeupSleepMsg();
    void DisturbMsg();
    void LinChannelConfig();

    // Each gives true for a request that may go on; otherwise the host has its refusal.
    bool CheckLength(bool holds, const char* handler);
    bool CheckChannel(); // 0 or 1
    bool CheckOpen();    // 0 or 1, and open

    void Fail(const std::string& text, NegtiveErrorCode code);
    void OpenChannel(int channel);
    void CloseChannel(int channel);
    void ForgetResponses(int channel);

    // Hands a message to the driver. Negative when it was not taken.
    int SendMessage(uint8_t channel, const lin_tx_message& message);

    uint32_t CalcDelay(int channel, int dlc, uint16_t delay_ms) const;
    void SetTimer();
    void SleepCallBack();

    // The request from `offset` of its section on, and what an earlier one has left behind it.
    WireReader Request(size_t offset) const {
        return WireReader(std::span(reqMsgData).subspan(kFrameServiceOffset + offset));
    }

    std::map<LinMsgGroup, void (VciLinMsgService::*)()> func_map;
    Drivers::LinManage& linManage;
    ZephLinComM& linComM;
    LinScheduleManager& scheduleManager;
    UniqueFd timer_fd_;
    ZephChannel sleepChannel_;
    // What the timer will do. One sleep can be pending: a new one takes its place.
    int linChannel_sleep_ = 0;
    lin_operation lin_opt_sleep{};
};
