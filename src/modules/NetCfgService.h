#pragma once

#include "common/VciService.h"
#include "drivers/CanManage.h"
#include "modules/CommCfgGroup.h"

#include <map>
#include <optional>
#include <string>

enum NetCfgGroup : uint8_t {
    SET_CAN_TIMEPARAM_SID = 41,
    SET_CAN_SECONDPOINT_SID = 42,
    SET_CAN_TERMINATION_SID = 43,
    SET_CAN_STATUS_SID = 44,
    SET_CAN_CONTROLLERMODE_SID = 45,
    TEST_USB_SID = 46, // no service: refused like any unknown one
};

// Group 21. Configures the CAN channels. A value out of range is refused before anything is done;
// what comes of a request is not told to the host. Lives on the main thread.
class NetCfgService : public VciService {
  public:
    // `clearFlag`: the file that the clearing of the whole configuration leaves for the next start.
    explicit NetCfgService(ZephEventLoop* loop, std::string clearFlag = kClearFlag);

    // Answers the request to clear the whole configuration, when this start is the restart that it
    // asked for: CommCfgService, which takes that request, had ended the process. Answered here
    // because the configuration that a host waits for, to write it anew, is this service's.
    void Init();

    void HandleReadEvent();

  private:
    // Each reads its request without a look at the length: where a request is short, it reads what
    // an earlier one has left in the buffer.
    void CanSetTimeParam();
    void CanSetSecondSamplePoint();
    void CanSetTermination();
    void CanSetStatus();
    void CanSetControllerMode();

    // The channel 0 to 5 of a request whose value behind it is at most `highest`. Otherwise
    // nothing, and the host has its refusal.
    std::optional<uint8_t> CheckedChannel(uint8_t highest);

    std::map<NetCfgGroup, void (NetCfgService::*)()> func_map;
    Drivers::CanManage& canManager;
    std::string clearFlag_;

    // What the last request left: the data part of a classic request is what the last CAN FD
    // request put there, of whatever channel.
    CanTimeParam timeParam_{};
};
