#pragma once

#include "vcihost/Hex.h"

// LIN frames as people type them: 10#1122, 3C#00.FF, 10#R4. Pure functions, safe from any thread.
namespace vcihost {

constexpr uint8_t kMostLinId = 0x3F;
constexpr size_t kMostLinBytes = 8;

// A header with its response, or a header alone to which another node responds. A plain value.
struct LinFrame {
    uint8_t id = 0;          // 0 to 63, without parity bits
    bool headerOnly = false; // another node responds
    uint8_t requested = 0;   // bytes that the response to a header alone has
    Bytes data;              // 1 to 8 bytes; none of a header alone

    uint8_t Length() const { return headerOnly ? requested : static_cast<uint8_t>(data.size()); }
};

// The identifier in hex, then behind # the bytes, or R and how many the response has; 8 without a
// number. Dots may stand between bytes. Throws NotationError.
LinFrame ParseLinFrame(std::string_view text);

// One or two hex digits, also behind 0x, up to 3F. Throws NotationError.
uint8_t ParseLinId(std::string_view text);

// "0A".
std::string LinIdText(uint8_t id);

// The protected identifier: parity bits 6 and 7 above the identifier.
uint8_t LinPid(uint8_t id);

// The identifier of a protected one, whatever its parity bits.
constexpr uint8_t LinIdOf(uint8_t pid) {
    return pid & kMostLinId;
}

// Inverted sum with carry: of the data, and of the protected identifier in front of it.
uint8_t LinClassicChecksum(std::span<const uint8_t> data);
uint8_t LinEnhancedChecksum(uint8_t pid, std::span<const uint8_t> data);

} // namespace vcihost
