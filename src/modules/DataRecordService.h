#pragma once

#include "base/ZephChannel.h"
#include "common/VciService.h"
#include "drivers/CanManage.h"
#include "modules/CanErrorRing.h"
#include "modules/CanRecord.h"
#include "modules/DataRecordGroup.h"
#include "modules/LinRecord.h"
#include "net/PacketCapture.h"
#include "net/PacketMerger.h"
#include "utils/UniqueFd.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

// Group 9. Records what the capture sees on the channels that the host switches on, and uploads it.
// A wake-up on a LIN bus also starts that channel's schedule again, some time behind it. Requests
// and that start are treated on the main thread; records are made on the capture thread.
class DataRecordService : public VciService {
  public:
    // `chrDevices`: path of the CAN character devices, without the channel number.
    explicit DataRecordService(ZephEventLoop* loop,
                               const std::string& chrDevices = "/dev/norvane_can");
    ~DataRecordService(); // stops the capture, and starts no schedule any more

    // Opens the error rings, looks up the channels' interfaces and starts the capture; from here on
    // SIGINT prints the frame counters. A CAN device that is missing ends this at once, with a line
    // on standard output: nothing is then recorded in the whole run, and requests are answered all
    // the same. Once.
    void Init();

    void HandleReadEvent();

    // Sends a packet that has waited for its turn.
    void WriteUsb(const std::shared_ptr<Packet>& packet);

    // Makes the record of a captured packet of interface `index`, when that is one of the
    // channels'. Capture thread.
    void UsbUploadCallback(const pcap_pkthdr* pkthdr, const u_char* packet, int index);

  private:
    // A channel as one of its interfaces shows it. The code is its number in records: Ethernet from
    // 0, CAN from 8, LIN from 50.
    struct ChannelInfo {
        uint8_t code;
        uint8_t direction;
    };

    void InitAllChannelDevInfo();
    void MapInterface(const std::string& name, int code, uint8_t direction);

    void CfgEthRecordSwitch();
    void CfgLinRecordSwitch();

    void StartTimer(int ms); // capture thread
    void LinWakeupCb();

    std::map<DataRecordGroup, void (DataRecordService::*)()> func_map;
    std::string chrDevices_;
    CanRecord::ErrorRings errBuffer_;
    CanRecord canRecord_;
    LinRecord linRecord_;
    std::atomic<int> linChannel_{0}; // that woke up last; set on the capture thread
    UniqueFd timer_fd_;              // armed on the capture thread
    ZephChannel linWakeupChannel_;
    // By interface index. Complete before the capture starts and never changed after, so that both
    // threads may look into it.
    std::unordered_map<unsigned int, ChannelInfo> channelInfo_;
    std::shared_ptr<PacketMerger> packetMerger_; // no record waits for its turn there
    net::PacketCapture capturer_;                // last: its worker uses all that is above
};

// The handler of SIGINT: prints how many frames of each CAN channel were recorded since the channel
// was opened. The next SIGINT ends the process. Async-signal-safe.
void printCanFrameNum(int signal);
