#pragma once

#include "common/VciService.h"
#include "drivers/CanManage.h"
#include "hal/IMachine.h"
#include "modules/CommCfgGroup.h"
#include "net/CanSend.h"
#include "utils/UniqueFd.h"

#include <map>
#include <memory>
#include <string>

struct Version_ {
    int majorVersionNum;
    int minorVersionNum;
    int revisionVersionNum;
};

// Group 1. The device as a whole: restarts it, tells its versions, time and identity, writes its
// serial record, and clears all configuration by ending the process. Lives on the main thread.
class CommCfgService : public VciService {
  public:
    // `clearFlag`: what a clear leaves for the next start, which answers it (NetCfgService).
    // `cidFile`: the card identification register of the eMMC as text, 32 hex digits or more.
    explicit CommCfgService(ZephEventLoop* loop, std::string clearFlag = kClearFlag,
                            std::string cidFile = "/sys/block/mmcblk0/device/cid");

    void HandleReadEvent();

  private:
    // Answers first, since nothing more can be said once the restart has begun.
    void ResetDevice();

    void GetDevVersion();
    void GetDevTime();
    void GetBuildInfo();
    void GetDevUID();

    // Writes the serial of the device, at production. The partition is found from the working
    // directory, which is the root. The answer means that the record is written, not that it is on
    // the card: that comes after it.
    void WriteSequence();

    // Ends all traffic and the process; the supervisor starts it again, without configuration. A
    // wrong length is refused, and everything is cleared all the same.
    void ClearAllConfig();

    // True for a request of gid and sid alone; otherwise the host has its refusal.
    bool CheckLength();

    void AnswerSerial(bool good, long position);
    void ClearLin(int channel);

    static void GetHardwareVersion(Version_& version);
    static void GetsoftwareVersion(Version_& version);
    static void GetKernelVersion(Version_& version);

    std::map<CommCfgGroup, void (CommCfgService::*)()> func_map;
    Drivers::CanManage& canManager;
    net::CanSend* can_send;
    std::shared_ptr<Hal::IMachine> machine_;
    std::string cidFile_;
    std::string clearFlag_;
    UniqueFd serialPartition_; // open from the first serial record on
};
