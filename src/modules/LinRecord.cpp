#include "modules/LinRecord.h"

#include "common/GlobalEnums.h"
#include "drivers/LinManage.h"
#include "modules/DataRecordGroup.h"
#include "utils/WireFormat.h"

#include <cstring>
#include <span>

namespace {

// Offsets in a packet of a LIN interface; what stands before is the cooked header and the driver's
// own.
constexpr size_t kDataIndex = 34; // element of the mapped array
constexpr size_t kDirection = 35;
constexpr size_t kPacketBytes = 36; // that must be there

constexpr uint8_t kStatusGood = 2;
constexpr uint8_t kStatusError = 3;

// The timing words stand in the record as they do in the driver's, one behind the other.
constexpr size_t kTimingOffset = offsetof(lin_rx_detil, header_length);
constexpr size_t kTimingBytes =
    offsetof(lin_rx_detil, response_baudrate) + sizeof(uint32_t) - kTimingOffset;
static_assert(kTimingBytes == 68);

} // namespace

void LinRecord::LinPacketCooked(const pcap_pkthdr* pkthdr, const u_char* packet, int linChannel) {
    if (pkthdr->caplen < kPacketBytes) {
        malformed_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    const uint8_t dataIndex = packet[kDataIndex];
    const uint8_t directon = packet[kDirection];
    const lin_rx_detil* const map = Drivers::LinManage::GetRxMemmap(linChannel);
    if (map == nullptr) {
        return;
    }
    if (dataIndex >= kLinMappedRecords) { // behind the 100th there is nothing of the driver's
        malformed_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    // The driver may write the element again while the record is made: one copy, and then that
    // alone.
    lin_rx_detil detil;
    std::memcpy(&detil, map + dataIndex, sizeof(detil));
    const lin_rx_frame& lf = detil.lf;

    if (detil.lin_id == kLinWakeupId) {
        wakeup_.Service()
            .U8(DATA_RECORD_SERVICE_GID)
            .U8(LIN_REC_WAKEUP_SID)
            .U8(static_cast<uint8_t>(linChannel))
            .U64(lf.start_time_stamp)
            .U64(lf.end_time_stamp);
        static_cast<void>(wakeup_.Send()); // a full ring counts the loss
        onWakeup_(linChannel);
        return;
    }
    const auto* const timing = reinterpret_cast<const uint8_t*>(&detil) + kTimingOffset;
    frame_.Service()
        .U8(DATA_RECORD_SERVICE_GID)
        .U8(LIN_REC_DATA_SID)
        .U8(static_cast<uint8_t>(linChannel))
        .U8(lf.pid)
        .U64(lf.start_time_stamp)
        .U64(lf.end_time_stamp)
        .U8(detil.error_code != 0 ? kStatusError : kStatusGood)
        .U16(static_cast<uint16_t>(detil.error_code))
        .U8(directon)
        .U8(lf.dlc)
        .Bytes(lf.data)
        .U8(lf.checksum) // the other way round than the driver has them
        .U8(lf.calu_checksum)
        .Bytes({timing, kTimingBytes});
    static_cast<void>(frame_.Send()); // a full ring counts the loss
}
