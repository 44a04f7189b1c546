#pragma once

#include "vcihost/Hex.h"

#include <optional>

// CAN frames as people type them: 123#DEADBEEF, 00000123#11.22, 123#R4, 123##1AABB. Pure functions,
// safe from any thread.
namespace vcihost {

// One frame, as a request of the device can carry it. A plain value.
struct CanFrame {
    uint32_t id = 0; // 11 bits, or 29 when extended; no flag bits
    bool extended = false;
    bool remote = false;   // never of a CAN FD frame
    bool fd = false;       // CAN FD format
    bool brs = false;      // CAN FD: the data goes out at the data bit rate
    uint8_t requested = 0; // bytes that a remote frame asks for
    Bytes data;            // of a length that a DLC code stands for; none of a remote frame

    // What the DLC code tells: bytes of data, or those that a remote frame asks for.
    size_t Length() const { return remote ? requested : data.size(); }

    bool operator==(const CanFrame&) const = default;
};

constexpr size_t kMostClassicBytes = 8;
constexpr size_t kMostFdBytes = 64;

// The bytes that a DLC code, 0 to 15, stands for.
uint8_t LengthOfDlc(uint8_t code);

// The code of a length; nothing for a length that no code stands for.
std::optional<uint8_t> DlcOfLength(size_t length);

// Three hex digits are a standard identifier, eight an extended one. Behind one # stand the bytes,
// or R and how many are asked for; behind ## the flags digit of a CAN FD frame, 1 for the switch of
// the bit rate, and the bytes. Dots may stand between bytes. Throws NotationError.
CanFrame ParseCanFrame(std::string_view text);

// The same for a frame that was seen on a bus: the flags digit may have 2 as well, for an
// error-passive sender. It is not kept, since no request can carry it. Throws NotationError.
CanFrame ParseLoggedCanFrame(std::string_view text);

// The same back, in uppercase and without dots.
std::string CanFrameText(const CanFrame& frame);

// Identifier and kind of a frame, without data: 123, 00000123, 123#R for a remote and 123## for a
// CAN FD frame. Throws NotationError.
CanFrame ParseCanId(std::string_view text);
std::string CanIdText(const CanFrame& frame);

} // namespace vcihost
