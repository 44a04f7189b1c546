#include "vcihost/LinRecord.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"

#include <algorithm>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint8_t kOneEntry = 1; // of a request that switches records

constexpr uint8_t kReceived = 1;     // direction; anything else is sent
constexpr uint8_t kStatusFailed = 3; // 2 for a frame without error

// A frame is sent to sleep by this identifier and first byte.
constexpr uint8_t kSleepPid = 0x3C;
constexpr uint8_t kSleepByte = 0;

struct ErrorName {
    uint16_t bit;
    const char* text;
};
constexpr ErrorName kErrorNames[] = {{kLinNoResponse, "no response"},
                                     {kLinFramingError, "framing error"},
                                     {kLinParityError, "parity error"},
                                     {kLinChecksumError, "checksum error"}};

void AddWords(std::string& text, const std::string& words) {
    text += text.empty() ? words : ", " + words;
}

} // namespace

Bytes LinRecordSwitchRequest(uint8_t channel, bool on) {
    return {DATA_RECORD_SERVICE_GID, kLinRecordSwitchSid, kOneEntry, channel,
            static_cast<uint8_t>(on)};
}

const char* LinChecksumTypeText(LinChecksumType type) {
    switch (type) {
    case LinChecksumType::Classic:
        return "classic";
    case LinChecksumType::Enhanced:
        return "enhanced";
    case LinChecksumType::Unknown:
        break;
    }
    return "unknown";
}

std::optional<LinFrameRecord> LinFrameRecord::From(const Message& message) {
    if (message.gid != DATA_RECORD_SERVICE_GID || message.sid != kLinFrameRecordSid) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    LinFrameRecord record{};
    record.channel = reader.U8();
    record.pid = reader.U8();
    record.start = reader.U64();
    record.end = reader.U64();
    record.failed = reader.U8() == kStatusFailed;
    record.errorCode = reader.U16();
    record.received = reader.U8() == kReceived;
    record.length = reader.U8();
    record.data = reader.Bytes(kMostLinBytes);
    record.checksum = reader.U8();
    record.calculated = reader.U8();
    for (uint32_t& timing : record.timings) {
        timing = reader.U32();
    }
    if (!reader.ok() || record.channel >= kLinChannels) {
        return std::nullopt;
    }
    // Without a response the bytes are those of an older frame.
    const bool responded = (record.errorCode & kLinNoResponse) == 0;
    record.data = record.data.first(responded ? std::min<size_t>(record.length, kMostLinBytes) : 0);
    return record;
}

LinChecksumType LinFrameRecord::ChecksumType() const {
    if (data.empty()) {
        return LinChecksumType::Unknown;
    }
    const uint8_t classic = LinClassicChecksum(data);
    const uint8_t enhanced = LinEnhancedChecksum(pid, data);
    for (const uint8_t sum : {calculated, checksum}) {
        if (sum == enhanced) {
            return LinChecksumType::Enhanced;
        }
        if (sum == classic) {
            return LinChecksumType::Classic;
        }
    }
    return LinChecksumType::Unknown;
}

bool LinFrameRecord::IsGoToSleep() const {
    return pid == kSleepPid && !HasError() && !data.empty() && data.front() == kSleepByte;
}

std::string LinFrameRecord::ErrorText() const {
    std::string text;
    for (const ErrorName& error : kErrorNames) {
        if ((errorCode & error.bit) != 0) {
            AddWords(text, error.text);
        }
    }
    if ((errorCode & ~kNamedLinErrors) != 0) {
        AddWords(text, fmt::format("error code 0x{:04x}", errorCode & ~kNamedLinErrors));
    }
    // The status has looked at 32 bits.
    return text.empty() && failed ? "error of a code that the record does not hold" : text;
}

std::string LinFrameRecord::Text() const {
    std::string text = LinIdText(LinIdOf(pid)) + "#";
    for (const uint8_t byte : data) {
        text += fmt::format("{:02X}", byte);
    }
    return text;
}

std::optional<LinWakeupRecord> LinWakeupRecord::From(const Message& message) {
    if (message.gid != DATA_RECORD_SERVICE_GID || message.sid != kLinWakeupRecordSid) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    LinWakeupRecord record{};
    record.channel = reader.U8();
    record.start = reader.U64();
    record.end = reader.U64();
    if (!reader.ok() || record.channel >= kLinChannels) {
        return std::nullopt;
    }
    return record;
}

} // namespace vcihost
