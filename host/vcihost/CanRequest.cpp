#include "vcihost/CanRequest.h"

#include "common/Config.h"
#include "common/GlobalEnums.h"
#include "vcihost/Frame.h"

#include <algorithm>
#include <stdexcept>

namespace vcihost {

namespace {

constexpr uint32_t kExtendedBit = 0x80000000; // of the identifier word
constexpr uint32_t kExtendedMask = 0x1FFFFFFF;
constexpr uint32_t kStandardMask = 0x7FF;

// The flags byte; the lowest four bits are the DLC code.
constexpr uint8_t kDlcMask = 0x0F;
constexpr uint8_t kRemoteOrBrs = 0x20; // of a classic frame remote, of a CAN FD frame the rate
constexpr uint8_t kFdFrame = 0x40;

constexpr uint8_t kClassicType = 0;
constexpr uint8_t kFdType = 1;

constexpr size_t kTimingSize = 13;
constexpr size_t kEntryHead = 7; // of a periodic entry, the longest: identifier, period, flags
constexpr size_t kHead = 4;      // gid, sid, channel, count
// A full request of the longest entries is far from the longest that the device takes.
static_assert(kHead + kMostCanEntries * (kEntryHead + kMostFdBytes) <= kLongestService);

uint8_t Code(uint8_t channel) {
    return static_cast<uint8_t>(channel + kFirstCanCode);
}

void PutTiming(WireWriter& writer, const BitTiming& timing) {
    writer.U8(timing.brp).U8(timing.sjw).U8(timing.seg1).U8(timing.seg2);
}

template <typename Entry, typename Append>
std::vector<Bytes> Split(uint8_t sid, uint8_t channel, std::span<const Entry> entries,
                         Append append) {
    std::vector<Bytes> requests;
    while (!entries.empty()) {
        const auto part = entries.first(std::min(entries.size(), kMostCanEntries));
        entries = entries.subspan(part.size());
        Bytes& service = requests.emplace_back(Bytes{SEND_NET_FRAME_SERVICE_GID, sid, Code(channel),
                                                     static_cast<uint8_t>(part.size())});
        for (const Entry& entry : part) {
            append(service, entry);
        }
    }
    return requests;
}

} // namespace

void AppendCanFrame(Bytes& service, const CanFrame& frame, const uint16_t* periodMs) {
    const auto dlc = DlcOfLength(frame.Length());
    if (!dlc) {
        throw std::invalid_argument("a frame of a length without a DLC code");
    }
    uint8_t flags = *dlc;
    flags |= frame.remote || frame.brs ? kRemoteOrBrs : 0U;
    flags |= frame.fd ? kFdFrame : 0U;
    uint8_t head[kEntryHead];
    WireWriter writer(head);
    writer.U32(frame.id | (frame.extended ? kExtendedBit : 0U));
    if (periodMs != nullptr) {
        writer.U16(*periodMs);
    }
    writer.U8(flags);
    service.insert(service.end(), head, head + writer.Size());
    service.insert(service.end(), frame.data.begin(), frame.data.end());
    // The device takes as many data bytes of a remote frame as its DLC code says, and drops them.
    service.resize(service.size() + (frame.Length() - frame.data.size()));
}

Bytes CanProbeRequest(uint8_t channel) {
    return {SEND_NET_FRAME_SERVICE_GID, kCanBurstSid, Code(channel), 0};
}

Bytes CanTimingRequest(uint8_t channel, const CanTiming& timing) {
    Bytes service(kTimingSize);
    WireWriter writer(service);
    writer.U8(NET_CONFIG_SERVICE_GID).U8(kCanTimingSid).U8(Code(channel));
    writer.U8(timing.data ? kFdType : kClassicType).U8(timing.listen ? 1 : 0);
    PutTiming(writer, timing.nominal);
    PutTiming(writer, timing.data.value_or(BitTiming{}));
    return service;
}

Bytes CanSecondPointRequest(uint8_t channel, std::optional<uint8_t> offset) {
    return {NET_CONFIG_SERVICE_GID, kCanSecondPointSid, Code(channel),
            static_cast<uint8_t>(offset.has_value()), offset.value_or(0)};
}

Bytes CanTerminationRequest(uint8_t channel, uint8_t resistors) {
    return {NET_CONFIG_SERVICE_GID, kCanTerminationSid, Code(channel), resistors};
}

Bytes CanStatusRequest(uint8_t channel, bool open) {
    return {NET_CONFIG_SERVICE_GID, kCanStatusSid, Code(channel), static_cast<uint8_t>(open)};
}

Bytes CanModeRequest(uint8_t channel, bool listen) {
    return {NET_CONFIG_SERVICE_GID, kCanModeSid, Code(channel), static_cast<uint8_t>(listen)};
}

std::vector<Bytes> CanPeriodicRequests(uint8_t channel, std::span<const CanPeriodic> entries) {
    return Split(kCanPeriodicSid, channel, entries, [](Bytes& service, const CanPeriodic& entry) {
        AppendCanFrame(service, entry.frame, &entry.periodMs);
    });
}

std::vector<Bytes> CanBurstRequests(uint8_t channel, std::span<const CanFrame> frames) {
    return Split(kCanBurstSid, channel, frames, [](Bytes& service, const CanFrame& frame) {
        AppendCanFrame(service, frame, nullptr);
    });
}

Bytes CanSilentRequest(uint8_t channel, const CanFrame& frame) {
    Bytes service{SEND_NET_FRAME_SERVICE_GID, kCanSilentSid, Code(channel)};
    AppendCanFrame(service, frame, nullptr);
    return service;
}

CanFrame ReadCanFrame(WireReader& reader, uint16_t* periodMs) {
    CanFrame frame;
    const uint32_t word = reader.U32();
    if (periodMs != nullptr) {
        *periodMs = reader.U16();
    }
    const uint8_t flags = reader.U8();
    frame.extended = (word & kExtendedBit) != 0;
    frame.id = word & (frame.extended ? kExtendedMask : kStandardMask);
    frame.fd = (flags & kFdFrame) != 0;
    frame.remote = !frame.fd && (flags & kRemoteOrBrs) != 0;
    frame.brs = frame.fd && (flags & kRemoteOrBrs) != 0;
    const uint8_t length = LengthOfDlc(flags & kDlcMask);
    const auto data = reader.Bytes(length);
    if (frame.remote) {
        frame.requested = length;
    } else {
        frame.data.assign(data.begin(), data.end());
    }
    return frame;
}

} // namespace vcihost
