#pragma once

#include "vcihost/CanChannel.h"
#include "vcihost/Frame.h"

#include <optional>
#include <string>

// What the device uploads of a CAN channel that it records, and the request by which it does so.
// Pure functions and plain values, safe from any thread.
namespace vcihost {

// Service ids of group 9.
constexpr uint8_t kCanRecordSwitchSid = 22;
constexpr uint8_t kCanFrameRecordSid = 25;

// Service id of group 104.
constexpr uint8_t kCanErrorRecordSid = 6;

// Service section that switches the record of a channel, 0 to 5, on or off. The answer carries the
// device time and does not tell what was before.
Bytes CanRecordSwitchRequest(uint8_t channel, bool on);

// One frame that a channel has sent or received. Borrows the message's bytes.
struct CanFrameRecord {
    uint64_t time;   // device time of its capture, nanoseconds
    uint8_t channel; // 0 to 5
    bool received;   // false: sent by the device
    uint32_t id;     // 11 bits, or 29 when extended; no flag bits
    bool extended;
    bool remote; // never of a CAN FD frame
    bool fd;
    bool brs;                      // CAN FD: the data came at the data bit rate
    bool esi;                      // CAN FD: the sender is error-passive
    uint8_t dlc;                   // the code of the length, 0 where the length has none
    std::span<const uint8_t> data; // at most 64 bytes; none of a remote frame

    // Nothing for any other message, and for one that no CAN channel can have made.
    static std::optional<CanFrameRecord> From(const Message& message);

    // Bytes of data, or those that a remote frame asks for.
    uint8_t Length() const;

    // "123#DEADBEEF", "00000123##1AABB", "123#R4": the notation in which logs are written. The
    // flags digit of a CAN FD frame has 1 for the switch of the bit rate and 2 for an error-passive
    // sender.
    std::string Text() const;
};

// One error that a channel has seen. Borrows the message's bytes.
struct CanErrorRecord {
    uint64_t time;   // device time, nanoseconds
    uint8_t channel; // 0 to 5
    // The controller's code. A channel that listens reports 7 where its controller gives none.
    uint8_t code;
    uint16_t bit;     // position of the error in the frame
    uint8_t position; // in the protocol, as the controller numbers it
    uint32_t id;      // of the frame in error, without flag bits
    bool extended;
    bool received;     // false: the device was the sender
    uint8_t frameType; // one bit each, as the controller has them
    uint8_t protocol;
    bool esi;
    uint8_t dlc;
    std::span<const uint8_t> data; // of the frame, as far as it came; at most 64 bytes

    // Like CanFrameRecord::From().
    static std::optional<CanErrorRecord> From(const Message& message);

    // "error code 3 at bit 12, position 5, in 123 [2] AA BB".
    std::string Text() const;
};

} // namespace vcihost
