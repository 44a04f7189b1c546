#pragma once

#include "common/CanWire.h"
#include "drivers/CanDriver.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// Frames per channel since it was opened, counted by the recording; printed and zeroed when it is
// closed. Any thread.
extern std::array<std::atomic<uint64_t>, kCanChannels> CanRxFrameNum;
extern std::array<std::atomic<uint64_t>, kCanChannels> CanTxFrameNum;
extern std::array<std::atomic<uint64_t>, kCanChannels> CanErrFrameNum;
extern std::array<std::atomic<uint64_t>, kCanChannels> CanFrameNum; // all of them

namespace Drivers {

// The owner of the six CAN channels and of what the rest of the program asks before it touches one.
// Every operation takes the channel 0 to 5, which the caller has checked. Lives on the main thread,
// but for what says otherwise; the static words may be read from any.
class CanManage {
  public:
    // The arguments, as of the constructor, count on the first call only.
    static CanManage&
    GetInstance(const std::string& chrDevices = "/dev/norvane_can",
                const std::string& forbiddenFile = "/tmp/can_listen_forbidden_state");

    // Loads the listen-forbidden bits that the last orderly end has saved in `forbiddenFile`, and
    // the destructor saves them there: in /tmp, so that they last as long as the system stays up,
    // as a frame in a receive buffer does. `chrDevices` as of CanDriver.
    CanManage(const std::string& chrDevices, std::string forbiddenFile);
    ~CanManage();
    CanManage(const CanManage&) = delete;
    CanManage& operator=(const CanManage&) = delete;

    // 0. -8: no control socket, -9: maker's core not raised, -3: Xilinx core not started.
    int OpenDevice(int ch);

    // 0, and a line of counters on standard output. -4: Xilinx core not stopped, -10: maker's core
    // not lowered, -11: control socket not released; the channel then stays open.
    int CloseDevice(int ch);

    // `type`: 0 classic, 1 CAN FD. -1 on an open channel; -65282 when the timing was not taken, and
    // the bit rates are as before.
    int SetTimeParam(int ch, uint8_t type, const CanTimeParam* param);

    int SetTerminal(int ch, int mode);                           // see CanDriver::SetTerminate
    int SetSecondarySamplePoint(int ch, int enable, int offset); // -1 on an open channel
    int SetControllerMode(int ch, int mode);                     // 0: normal, 2: listen-only
    int SetSelfAckMode(int ch, int mode);                        // -65282 on a closed channel
    int GetChannelStatus(int ch);                                // bit of the shared block

    static int GetDeviceStatus(int ch); // 1 while open
    static int GetListenStatus(int ch); // 1 while in listen mode

    // 1 when a frame lay in the receive buffer as the channel entered listen mode: it is stale. The
    // recording asks before it passes a frame on, drops one in the life of the process, and clears
    // that channel's bit. Any thread.
    int GetListenForbidden(int ch) const;
    void ClearListenForbidden(int ch);

    // Forgets which channels are open and listening, once they have been closed.
    void ClearAllStatus();

    // Descriptors of the driver, still owned there; negative when there is none.
    int GetNorvaneCanIpCoreNetFd(int ch) const { return Driver(ch).NorvaneCanNetFd(); }
    int GetNorvaneCanIpCoreChrFd(int ch) const { return Driver(ch).NorvaneCanChrFd(); }

    const int maxChannelCount_ = kCanChannels;
    const int startChannel_ = kFirstCanCode;
    const int endChannel_ = kLastCanCode;

    // Bit rates in bit/s, 0 until timing has been set; planning on such a channel makes it 100.
    static std::array<std::atomic<int>, kCanChannels> BaudRate_;
    static std::array<std::atomic<int>, kCanChannels> DataBaudRate_;

    static std::atomic<int> statusMask_;             // bit n: channel n is open
    static std::atomic<int> ListenstatusMask_;       // bit n: channel n listens only
    static std::atomic<int> ListenchannelForbidden_; // bit n: see GetListenForbidden

  private:
    void SaveListenForbiddenState();
    void LoadListenForbiddenState();
    CanDriver& Driver(int ch) const { return *deviceList_[static_cast<size_t>(ch)]; }

    std::vector<std::shared_ptr<CanDriver>> deviceList_;
    std::string forbiddenFile_;
};

} // namespace Drivers
