#pragma once

#include "common/UploadFrame.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

#include <pcap/pcap.h>

// The road of a captured LIN packet to the host. The packet only names the element of the driver's
// mapped array that holds what was received: a frame, or a wake-up on the bus. Lives on the capture
// thread, but for what says otherwise. It allocates nothing, takes no lock but that of the USB
// link, and prints only where the array is missing; what a wake-up's callback does comes on top. A
// record for which the link has no room is lost.
class LinRecord {
  public:
    using WakeupCallback = std::function<void(int linChannel)>;

    // `onWakeup` is called behind the record of each wake-up.
    explicit LinRecord(WakeupCallback onWakeup) : onWakeup_(std::move(onWakeup)) {}
    LinRecord(const LinRecord&) = delete;
    LinRecord& operator=(const LinRecord&) = delete;

    // A packet of the interface of LIN channel 0 or 1, of whatever content.
    void LinPacketCooked(const pcap_pkthdr* pkthdr, const u_char* packet, int linChannel);

    // Packets dropped since they end before what they must hold, or name an element that is not
    // there. Any thread.
    uint64_t MalformedPackets() const { return malformed_.load(std::memory_order_relaxed); }

  private:
    // Lengths of the service sections, gid and sid included. The last 8 bytes of both are 0.
    static constexpr uint32_t kFrameServiceLength = 103;
    static constexpr uint32_t kWakeupServiceLength = 19;

    WakeupCallback onWakeup_;
    std::atomic<uint64_t> malformed_{0};
    UploadFrame<kFrameServiceLength> frame_;
    UploadFrame<kWakeupServiceLength> wakeup_;
};
