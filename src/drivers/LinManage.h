#pragma once

#include "drivers/LinDriver.h"
#include "drivers/LinOperation.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace Drivers {

// The owner of the two LIN channels: which are open, their character devices and the records of
// received frames that these share. Channels are 0 and 1, in host messages too; but for GetRxMemmap
// and GetDeviceStatus, the caller has checked them. What fails is told on standard output, and by
// its errno on standard error. Lives on the main thread; the static words, and what says so, may be
// read from any.
class LinManage {
  public:
    // The argument, as of the constructor, counts on the first call only.
    static LinManage& GetInstance(const std::string& chrDevices = "/dev/LIN");

    // `chrDevices`: path of the character devices up to the channel number, behind which stands
    // "_CHAR". Tells the net devices' names on standard output.
    explicit LinManage(std::string chrDevices);
    ~LinManage(); // closes both channels
    LinManage(const LinManage&) = delete;
    LinManage& operator=(const LinManage&) = delete;

    // 0, also when the channel is open already, or -1. The net device stays up where the records
    // then cannot be mapped.
    int OpenDevice(int ch);

    // 0, also when the channel is closed already, or -1: the channel then still counts as open. The
    // bit rate stays known.
    int CloseDevice(int ch);

    // See LinDriver. -1 on a closed channel. A configuration that was taken sets the bit rate.
    int ChannelCfg(int ch, const lin_operation* op);
    int ParmCfg(int ch, int param, int value);

    // 0, also when the driver refuses the record; -1 on a closed channel.
    int OperationCfg(int ch, const lin_operation* op);

    // The bit rate last configured, bit/s; 0 until then. Any thread.
    int getBaudrate(int ch) const { return baudrate[static_cast<size_t>(ch)]; }

    static int GetDeviceStatus(int ch); // 1 while open; 0 for a number that is no channel's

    // The kLinMappedRecords records of received frames, which the driver writes at any time; null
    // for a channel that was never opened or is none. From the first opening on they can be read at
    // one address until the process ends: after a close those of the first page are 0. Any thread.
    static const lin_rx_detil* GetRxMemmap(int ch);

    const int maxChannelCount = kLinChannels;

    static std::atomic<int> statusMask;                         // bit n: channel n is open
    static std::array<std::atomic<int>, kLinChannels> chrDevFd; // 0 until first opened
    static std::array<std::atomic<const lin_rx_detil*>, kLinChannels> mappedMemory;

  private:
    int SetMemmap(int ch, int fd);
    int CloseMemmp(int ch);
    LinDriver& Driver(int ch) const { return *lin_List[static_cast<size_t>(ch)]; }

    std::string chrDevices_;
    std::vector<std::shared_ptr<LinDriver>> lin_List;
    std::array<std::atomic<int>, kLinChannels> baudrate{};
};

} // namespace Drivers
