#pragma once

#include "vcihost/Frame.h"
#include "vcihost/LinChannel.h"
#include "vcihost/LinFrame.h"

#include <array>

// What the device uploads of a LIN channel that it records, and the request by which it does so.
// Pure functions and plain values, safe from any thread.
namespace vcihost {

// Service ids of group 9.
constexpr uint8_t kLinRecordSwitchSid = 12;
constexpr uint8_t kLinFrameRecordSid = 26;
constexpr uint8_t kLinWakeupRecordSid = 27;

// Service section that switches the record of a channel, 0 or 1, on or off. The answer carries the
// device time; a closed channel is refused.
Bytes LinRecordSwitchRequest(uint8_t channel, bool on);

// Bits of an error code that have names. The others are the LIN driver's own.
constexpr uint16_t kLinNoResponse = 1;
constexpr uint16_t kLinFramingError = 2;
constexpr uint16_t kLinParityError = 4;
constexpr uint16_t kLinChecksumError = 8;
constexpr uint16_t kNamedLinErrors =
    kLinNoResponse | kLinFramingError | kLinParityError | kLinChecksumError;

// What a checksum is taken over: the data, or the protected identifier as well.
enum class LinChecksumType : uint8_t {
    Unknown = 0,
    Classic = 1,
    Enhanced = 2,
};

// "classic", "enhanced", "unknown".
const char* LinChecksumTypeText(LinChecksumType type);

// The times that the driver has measured in a frame, in its units, by the names of their fields.
constexpr const char* kLinTimings[] = {
    "header_length",     "break_field_length", "break_delimiter_length", "interbyte_length",
    "syncbyte_length",   "interbyte_before1",  "interbyte_before2",      "interbyte_before3",
    "interbyte_before4", "interbyte_before5",  "interbyte_before6",      "interbyte_before7",
    "interbyte_before8", "interbyte_beforecs", "response_length",        "header_baudrate",
    "response_baudrate",
};

// One frame that was on the bus of a channel, with or without a response. Borrows the message's
// bytes.
struct LinFrameRecord {
    uint64_t start;     // device time, nanoseconds
    uint64_t end;       // the same
    uint8_t channel;    // 0 or 1
    uint8_t pid;        // as it was on the bus
    bool received;      // false: sent by the device
    bool failed;        // the status says so
    uint16_t errorCode; // bits, 0 for none; the device keeps what stands above 16 bits to itself
    uint8_t length;     // as the record tells it, also above 8
    std::span<const uint8_t> data; // at most 8 bytes; none without a response
    uint8_t checksum;              // as it was on the bus
    uint8_t calculated;            // as it should have been
    std::array<uint32_t, std::size(kLinTimings)> timings;

    // Nothing for any other message, and for one that no LIN channel can have made.
    static std::optional<LinFrameRecord> From(const Message& message);

    bool HasError() const { return failed || errorCode != 0; }

    // Which kind of checksum the calculated one is, or else the one on the bus.
    LinChecksumType ChecksumType() const;

    // The frame by which a commander sends the bus to sleep.
    bool IsGoToSleep() const;

    // "no response, error code 0x0010"; empty for none. Bits without a name are told as a code.
    std::string ErrorText() const;

    // "10#1122", "10#" without a response.
    std::string Text() const;
};

// A wake-up signal on the bus of a channel.
struct LinWakeupRecord {
    uint64_t start; // device time, nanoseconds
    uint64_t end;
    uint8_t channel; // 0 or 1

    // Like LinFrameRecord::From().
    static std::optional<LinWakeupRecord> From(const Message& message);
};

} // namespace vcihost
