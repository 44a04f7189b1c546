#include "modules/CanRecord.h"

#include "common/GlobalEnums.h"
#include "drivers/UsbDriver.h"
#include "utils/Console.h"
#include "utils/WireFormat.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <span>

namespace {

constexpr uint8_t kCanFrameSid = 25; // of group 9
constexpr uint8_t kCanErrorSid = 6;  // of group 104

// Bytes of the service section before the payload, gid and sid included.
constexpr uint32_t kFrameHead = 16;
constexpr uint32_t kErrorHead = 20;

constexpr int kFrameTimeOffset = 12; // of the capture time in a frame record
constexpr size_t kTimeSize = 8;

constexpr int kMostClassicBytes = 8;

constexpr uint32_t kRemoteFlag = 0x40000000; // RTR in an identifier

// Of the flags byte of a frame record. The bit of FD's BRS says "remote" for a classic frame.
constexpr int kDirectionBit = 7;
constexpr int kTypeBit = 6;
constexpr int kRemoteOrBrsBit = 5;
constexpr int kEsiBit = 4;

// The device's clock starts near 0. A capture time behind this one, 463 days of uptime, was not
// taken from it.
constexpr uint64_t kLastTime = 40'000'000'000'000'000; // ns
constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr int64_t kToleratedStepBack = 5; // seconds

// What an error on a channel that only listens is reported as, when the controller gives no code.
constexpr uint8_t kListenErrorCode = 7;

void CountOne(std::array<std::atomic<uint64_t>, kCanChannels>& counters, int channel) {
    counters[static_cast<size_t>(channel)].fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void CanRecord::CanPacketCooked(const pcap_pkthdr* pkthdr, const u_char* packet) {
    const CanPacket can(std::span(packet, pkthdr->caplen));
    if (!can.HasHead() || can.Channel() >= kCanChannels) {
        malformed_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (can.IsError()) {
        CanErrorFrameHandle(can);
    } else {
        CanCommonFrameHandle(pkthdr, can);
    }
}

void CanRecord::CanCommonFrameHandle(const pcap_pkthdr* pkthdr, const CanPacket& packet) {
    const int type = packet.GetType();
    const int channel = packet.Channel();
    int length = packet.GetLength();
    // The DLC is that of the bus, so it comes before the cut: a classic frame may have one above 8.
    const uint8_t dlc = kLengthToDlc[static_cast<size_t>(length)];
    if (type == 0) {
        length = std::min(length, kMostClassicBytes);
    }
    const uint32_t serviceLength = kFrameHead + static_cast<uint32_t>(length);

    if (GetCanTimeStamp(record_.data(), kFrameTimeOffset, pkthdr) < 0) {
        return;
    }
    uint32_t id = packet.GetId();
    const int direction = packet.GetDirection();
    int flags = direction << kDirectionBit | dlc;
    if (type == 0) {
        flags |= packet.GetRemote() << kRemoteOrBrsBit;
        if (packet.GetRemote() == 1) {
            id &= ~kRemoteFlag; // the flags byte carries it
        }
    } else if (type == 1) {
        flags |= 1 << kTypeBit | packet.GetBrs() << kRemoteOrBrsBit | packet.GetESI() << kEsiBit;
    }

    // A frame that lay in the receive buffer as its channel began to listen is stale. One is
    // dropped in the life of the process, of whichever channel comes first; the marks of others
    // stay.
    if (!canFrameDrop && canManager_.GetListenForbidden(channel) > 0) {
        canManager_.ClearListenForbidden(channel);
        canFrameDrop = true;
        return;
    }

    WireWriter(std::span(record_).first<kFrameTimeOffset>())
        .U8(0)
        .U32(serviceLength)
        .U8(DATA_RECORD_SERVICE_GID)
        .U8(kCanFrameSid)
        .U8(static_cast<uint8_t>(channel + kFirstCanCode))
        .U32(id);
    // A packet that was captured short of its payload still is a frame on the bus: what is missing
    // goes out as zeros.
    WireWriter behindTime{std::span(record_).subspan<kFrameTimeOffset + kTimeSize>()};
    behindTime.U8(static_cast<uint8_t>(flags)).Bytes(packet.Payload(static_cast<size_t>(length)));
    Send(kFrameTimeOffset + kTimeSize + behindTime.Size(), serviceLength);

    CountOne(direction == 1 ? CanRxFrameNum : CanTxFrameNum, channel);
    CountOne(CanFrameNum, channel);
}

int CanRecord::GetCanTimeStamp(uint8_t* buffer, int offset, const pcap_pkthdr* pkthdr) {
    const auto seconds = static_cast<uint64_t>(pkthdr->ts.tv_sec);
    // The field of microseconds holds nanoseconds here.
    const uint64_t ns = seconds * kNanosecondsPerSecond + static_cast<uint64_t>(pkthdr->ts.tv_usec);
    if (seconds > kLastTime / kNanosecondsPerSecond || ns > kLastTime) {
        return -1;
    }
    const int64_t second = pkthdr->ts.tv_sec;
    if (second + kToleratedStepBack < second_) {
        char text[48];
        snprintf(text, sizeof(text), "CAN WRONG TIMESTAMP: %" PRIu64, ns);
        PrintLine(text);
    }
    second_ = second;
    WireWriter({buffer + offset, kTimeSize}).U64(ns);
    return 0;
}

void CanRecord::CanErrorFrameHandle(const CanPacket& packet) {
    const int channel = packet.Channel();
    const CanErrorRing& ring = errBuffer_[static_cast<size_t>(channel)];
    if (!packet.HasSlots() || !ring.IsOpen()) {
        malformed_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    uint8_t infoIndex = packet.FirstSlot();
    for (int left = packet.SlotCount(); left > 0; --left) {
        ErrorInfo info = ring.Read(infoIndex);
        if (Drivers::CanManage::GetListenStatus(channel) > 0) {
            info.direction = 1; // a channel that listens cannot have been the sender
            if (info.errcode == 0) {
                info.errcode = kListenErrorCode;
            }
        }
        WriteErrorRecord(channel, info);
        ++infoIndex; // wraps with the ring
        CountOne(CanErrFrameNum, channel);
        CountOne(CanFrameNum, channel);
    }
}

void CanRecord::WriteErrorRecord(int channel, const ErrorInfo& info) {
    const uint32_t serviceLength = kErrorHead + info.length;
    WireWriter record(record_);
    record.U8(0)
        .U32(serviceLength)
        .U8(ERR_INFO_SERVICE_GID)
        .U8(kCanErrorSid)
        .U64(info.timestamp)
        .U8(static_cast<uint8_t>(channel + kFirstCanCode))
        .U8(info.errcode)
        .U16(info.errBit)
        .U8(info.potocolPos)
        .U32(info.canid)
        .U8(static_cast<uint8_t>(info.direction << 7 | info.type << 6 | info.potocol << 5 |
                                 info.esi << 4 | info.dlc))
        .Bytes(std::span(info.data).first(std::min<size_t>(info.length, sizeof(info.data))));
    Send(record.Size(), serviceLength);
}

// Everything behind the `used` bytes is zero, up to the end of the message.
void CanRecord::Send(size_t used, uint32_t serviceLength) {
    const uint32_t messageLength = serviceLenToMsgLen(serviceLength);
    std::fill(record_.begin() + static_cast<std::ptrdiff_t>(used),
              record_.begin() + static_cast<std::ptrdiff_t>(messageLength), uint8_t{0});
    // A full ring drops the record and counts it there; the recording goes on all the same.
    static_cast<void>(Drivers::UsbDriver::GetInstance().UsbWrite(record_.data(), messageLength));
}
