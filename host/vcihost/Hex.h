#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// Text of bytes and numbers, as people type them. Pure functions, safe from any thread.
namespace vcihost {

using Bytes = std::vector<uint8_t>;

// Text that is no hex; what() says why and where, counting characters from 1.
class HexError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Two hex digits a byte, either case. Blanks may stand between bytes, not inside one. Empty text
// gives no bytes. Throws HexError on anything else.
Bytes ParseHex(std::string_view text);

// Two lowercase digits a byte, without blanks.
std::string ToHex(std::span<const uint8_t> bytes);

// The same with one blank between bytes.
std::string ToSpacedHex(std::span<const uint8_t> bytes);

// A whole number, decimal or hexadecimal with a leading 0x, from 0 to `max`; nothing for other
// text.
std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t max);

} // namespace vcihost
