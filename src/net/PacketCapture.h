#pragma once

#include "net/MonitoredInterfaces.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <pcap/pcap.h>

namespace net {

// The one tap of the recording: a live capture over all interfaces of the device, in one order of
// arrival, and a worker thread that hands the packets of the monitored interfaces to one callback.
// Made, started, stopped and destroyed on one thread; SetNetworkMonitor belongs to that thread too.
//
// Packets begin with the 20-byte cooked header (LINKTYPE_LINUX_SLL2), whose bytes 4..7 are the
// interface index in network byte order. A packet longer than 8192 bytes arrives cut.
class PacketCapture {
  public:
    // Worker thread. The header's subsecond field holds nanoseconds; the third argument is the
    // interface index. The bytes are valid until the callback returns.
    using HandlePacketCallBack = std::function<void(const pcap_pkthdr*, const u_char*, int)>;

    // Opens `device`, where "any" stands for all interfaces. A capture that cannot be opened is
    // told on standard error, and then no packet ever comes.
    explicit PacketCapture(const std::string& device = "any");

    // Reads from `capture` instead, a handle whose link type is the cooked one, and owns it. Null
    // for a capture that never yields a packet.
    explicit PacketCapture(pcap_t* capture);

    ~PacketCapture(); // stops the worker
    PacketCapture(const PacketCapture&) = delete;
    PacketCapture& operator=(const PacketCapture&) = delete;

    // Before StartCapturer().
    void SetHandlePacketCallBack(const HandlePacketCallBack& cb) { cb_ = cb; }

    // Starts the worker with the highest real-time priority, where the process may have that. Once.
    void StartCapturer();

    // Waits for the worker to end. Without effect when it was not started.
    void StopCapturer();

    // Whether packets of the interface `index` are wanted, from the next packet on. None is at
    // first. A switch, not a count: off ends what any number of ons began. Never holds up the
    // worker.
    void SetNetworkMonitor(int index, bool enable) { indexs_.Set(index, enable); }

    // Hands the packet on if its interface is monitored. Worker thread.
    void PacketHandler(const pcap_pkthdr* pkthdr, const u_char* packet);

    // Packets that were too short to name their interface. Any thread.
    uint64_t TruncatedPackets() const { return truncated_.load(std::memory_order_relaxed); }

  private:
    struct Closer {
        void operator()(pcap_t* capture) const { pcap_close(capture); }
    };

    void InitPcap(const std::string& device);
    void PcapLoop();

    std::unique_ptr<pcap_t, Closer> handle;
    HandlePacketCallBack cb_;
    std::thread workerThread_;
    MonitoredInterfaces indexs_;
    std::atomic<uint64_t> truncated_{0};
};

// What libpcap calls for each packet; `user` is the PacketCapture.
void Callback(u_char* user, const pcap_pkthdr* pkthdr, const u_char* packet);

} // namespace net
