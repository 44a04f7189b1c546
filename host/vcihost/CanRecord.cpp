#include "vcihost/CanRecord.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/CanFrame.h"

#include <algorithm>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint32_t kExtendedFlag = 0x80000000;
constexpr uint32_t kStandardMask = 0x7FF;
constexpr uint32_t kExtendedMask = 0x1FFFFFFF;

// Of the flags byte, which both records end their head with. Bit 5 says "remote" of a classic and
// "bit rate switch" of a CAN FD frame.
constexpr int kReceivedBit = 7;
constexpr int kTypeBit = 6;
constexpr int kRemoteOrBrsBit = 5;
constexpr int kEsiBit = 4;
constexpr uint8_t kDlcMask = 0xF;

bool Bit(uint8_t flags, int bit) {
    return (flags >> bit & 1) != 0;
}

// A channel's number from its code; kCanChannels or more for a code that is none.
uint8_t ChannelOfCode(uint8_t code) {
    return static_cast<uint8_t>(code - kFirstCanCode);
}

// The rest of a record. No frame has more than 64 bytes, whatever the record says.
std::span<const uint8_t> TakeData(WireReader& reader) {
    return reader.Bytes(std::min(reader.Left(), kMostFdBytes));
}

std::string IdText(uint32_t id, bool extended) {
    return extended ? fmt::format("{:08X}", id) : fmt::format("{:03X}", id);
}

} // namespace

Bytes CanRecordSwitchRequest(uint8_t channel, bool on) {
    return {DATA_RECORD_SERVICE_GID, kCanRecordSwitchSid,
            static_cast<uint8_t>(channel + kFirstCanCode), static_cast<uint8_t>(on)};
}

std::optional<CanFrameRecord> CanFrameRecord::From(const Message& message) {
    if (message.gid != DATA_RECORD_SERVICE_GID || message.sid != kCanFrameRecordSid) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    CanFrameRecord record{};
    record.channel = ChannelOfCode(reader.U8());
    const uint32_t id = reader.U32();
    record.time = reader.U64();
    const uint8_t flags = reader.U8();
    if (!reader.ok() || record.channel >= kCanChannels) {
        return std::nullopt;
    }
    record.received = Bit(flags, kReceivedBit);
    record.extended = (id & kExtendedFlag) != 0;
    record.id = id & (record.extended ? kExtendedMask : kStandardMask);
    record.fd = Bit(flags, kTypeBit);
    record.remote = !record.fd && Bit(flags, kRemoteOrBrsBit);
    record.brs = record.fd && Bit(flags, kRemoteOrBrsBit);
    record.esi = record.fd && Bit(flags, kEsiBit);
    record.dlc = flags & kDlcMask;
    record.data = TakeData(reader);
    if (record.remote) {
        record.data = {}; // zeros for the bytes that it asks for
    } else if (!record.fd && record.data.size() > kMostClassicBytes) {
        record.data = record.data.first(kMostClassicBytes);
    }
    return record;
}

uint8_t CanFrameRecord::Length() const {
    return remote ? std::min<uint8_t>(dlc, kMostClassicBytes) : static_cast<uint8_t>(data.size());
}

std::string CanFrameRecord::Text() const {
    std::string text = IdText(id, extended);
    if (remote) {
        return Length() == 0 ? text + "#R" : fmt::format("{}#R{}", text, Length());
    }
    text += fd ? fmt::format("##{}", (brs ? 1 : 0) | (esi ? 2 : 0)) : "#";
    static constexpr char kDigits[] = "0123456789ABCDEF";
    for (const uint8_t byte : data) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

std::optional<CanErrorRecord> CanErrorRecord::From(const Message& message) {
    if (message.gid != ERR_INFO_SERVICE_GID || message.sid != kCanErrorRecordSid) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    CanErrorRecord record{};
    record.time = reader.U64();
    record.channel = ChannelOfCode(reader.U8());
    record.code = reader.U8();
    record.bit = reader.U16();
    record.position = reader.U8();
    const uint32_t id = reader.U32();
    const uint8_t flags = reader.U8();
    if (!reader.ok() || record.channel >= kCanChannels) {
        return std::nullopt;
    }
    record.id = id & kExtendedMask;
    record.extended = (id & kExtendedFlag) != 0 || record.id > kStandardMask;
    record.received = Bit(flags, kReceivedBit);
    record.frameType = Bit(flags, kTypeBit) ? 1 : 0;
    record.protocol = Bit(flags, kRemoteOrBrsBit) ? 1 : 0;
    record.esi = Bit(flags, kEsiBit);
    record.dlc = flags & kDlcMask;
    record.data = TakeData(reader);
    return record;
}

std::string CanErrorRecord::Text() const {
    std::string text = fmt::format("error code {} at bit {}, position {}, in {} [{}]", code, bit,
                                   position, IdText(id, extended), data.size());
    for (const uint8_t byte : data) {
        text += fmt::format(" {:02X}", byte);
    }
    return text;
}

} // namespace vcihost
