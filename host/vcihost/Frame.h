#pragma once

#include "common/Config.h"
#include "vcihost/Hex.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

// The frame that both directions of the host link use: a leading byte 0, the service length `n` in
// four bytes, little-endian, the service section of `n` bytes (gid, sid, payload), the handle in
// four bytes, a tail up to serviceLenToMsgLen(n). Pure functions, safe from any thread.
namespace vcihost {

constexpr size_t kServiceOffset = 5; // leading byte and length field
constexpr size_t kHandleSize = 4;
constexpr size_t kShortestService = 2;  // gid and sid
constexpr size_t kShortestMessage = 16; // a frame whose service section is gid and sid alone

// The service section of the longest request that the device takes.
constexpr size_t kShortestTail = 2;
constexpr size_t kLongestService = kReqMsgSize - kServiceOffset - kHandleSize - kShortestTail;

// A request around a service section, of any size from 0 on. The tail is zero.
// Throws std::length_error for a section that a 32-bit length field cannot tell.
Bytes BuildFrame(std::span<const uint8_t> service, uint32_t handle = 0);

// One message from the device. Borrows the bytes that it was parsed from.
struct Message {
    uint8_t gid;
    uint8_t sid;
    std::span<const uint8_t> service; // gid, sid and payload
    std::span<const uint8_t> payload;
    // The frame. What stands behind `service` means something in a negative response only: behind
    // the service section of any other message lie bytes of no meaning, which are not to be read.
    std::span<const uint8_t> whole;
};

// The parts of a message; nothing when the bytes are not one whole frame as the device sends them,
// and then `fault`, if given, is set to what is wrong.
std::optional<Message> ParseMessage(std::span<const uint8_t> bytes, std::string* fault = nullptr);

// One frame to the device. Borrows the bytes that it was parsed from.
struct Request {
    uint8_t gid;
    uint8_t sid;
    std::span<const uint8_t> payload;
    uint32_t handle;
};

// The parts of a request, like ParseMessage; the leading byte is ignored, as the device does.
std::optional<Request> ParseRequest(std::span<const uint8_t> bytes, std::string* fault = nullptr);

} // namespace vcihost
