#pragma once

#include "common/Config.h"
#include "drivers/CanManage.h"
#include "modules/CanErrorRing.h"
#include "modules/CanPacket.h"

#include <array>
#include <atomic>
#include <cstdint>

#include <pcap/pcap.h>

// The road of a captured CAN packet to the host: builds the record and queues it, in a buffer of
// its own that it uses again. Lives on the capture thread, but for what says otherwise. It
// allocates nothing and takes no lock but that of the USB link. It prints when the capture's clock
// went back; the USB link prints when it loses messages. A record for which the link has no room is
// lost, yet counted as recorded.
class CanRecord {
  public:
    using ErrorRings = std::array<CanErrorRing, kCanChannels>;

    // Both outlive this object.
    CanRecord(Drivers::CanManage& canManager, const ErrorRings& errorRings)
        : canManager_(canManager), errBuffer_(errorRings) {}
    CanRecord(const CanRecord&) = delete;
    CanRecord& operator=(const CanRecord&) = delete;

    // A packet of a CAN interface, of whatever content: an error notification yields a record for
    // each slot that it names, anything else one frame record.
    void CanPacketCooked(const pcap_pkthdr* pkthdr, const u_char* packet);

    // Packets dropped since they name no channel of ours, end before what they must hold, or ask
    // for an error ring that is not there. Any thread.
    uint64_t MalformedPackets() const { return malformed_.load(std::memory_order_relaxed); }

  private:
    void CanCommonFrameHandle(const pcap_pkthdr* pkthdr, const CanPacket& packet);
    void CanErrorFrameHandle(const CanPacket& packet);
    int GetCanTimeStamp(uint8_t* buffer, int offset, const pcap_pkthdr* pkthdr);
    void WriteErrorRecord(int channel, const ErrorInfo& info);
    void Send(size_t used, uint32_t serviceLength);

    // The longest record: an error whose length byte is 255, behind 20 bytes.
    static constexpr uint32_t kMostServiceBytes = 255 + 20;

    Drivers::CanManage& canManager_;
    const ErrorRings& errBuffer_;
    bool canFrameDrop = false; // the one frame that may be held back was
    int64_t second_ = 0;       // capture time of the frame before
    std::atomic<uint64_t> malformed_{0};
    std::array<uint8_t, serviceLenToMsgLen(kMostServiceBytes)> record_{};
};
