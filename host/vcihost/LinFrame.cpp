#include "vcihost/LinFrame.h"

#include "vcihost/Notation.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr size_t kMostIdDigits = 2;

// The identifier; nothing for other text.
std::optional<uint8_t> TakeId(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    uint8_t id = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, id, 16);
    if (error != std::errc() || stop != end || text.size() > kMostIdDigits || id > kMostLinId) {
        return std::nullopt;
    }
    return id;
}

NotationError NoFrame(std::string_view text, const std::string& fault) {
    return NotationError(fmt::format("'{}' is no LIN frame: {}; write 10#1122, or 10#R2 for a "
                                     "header alone",
                                     text, fault));
}

unsigned Bit(uint8_t value, unsigned bit) {
    return static_cast<unsigned>(value >> bit) & 1U;
}

uint8_t Checksum(unsigned sum, std::span<const uint8_t> data) {
    for (const uint8_t byte : data) {
        sum += byte;
        sum = (sum & 0xFFU) + (sum >> 8U);
    }
    return static_cast<uint8_t>(~sum);
}

} // namespace

LinFrame ParseLinFrame(std::string_view text) {
    const size_t sign = text.find('#');
    if (sign == std::string_view::npos) {
        throw NoFrame(text, "there is no #");
    }
    const auto id = TakeId(text.substr(0, sign));
    if (!id) {
        throw NoFrame(text, "the identifier is not 00 to 3F in hex");
    }
    LinFrame frame;
    frame.id = *id;
    std::string rest(text.substr(sign + 1));
    if (rest.starts_with('R') || rest.starts_with('r')) {
        const auto count = rest.size() == 1 ? std::optional<uint64_t>(kMostLinBytes)
                                            : ParseNumber(rest.substr(1), kMostLinBytes);
        if (!count || *count == 0) {
            throw NoFrame(text, "a response has 1 to 8 bytes");
        }
        frame.headerOnly = true;
        frame.requested = static_cast<uint8_t>(*count);
        return frame;
    }
    std::replace(rest.begin(), rest.end(), '.', ' ');
    try {
        frame.data = ParseHex(rest);
    } catch (const HexError& error) {
        throw NoFrame(text, std::string("data: ") + error.what());
    }
    if (frame.data.empty() || frame.data.size() > kMostLinBytes) {
        throw NoFrame(text, fmt::format("{} bytes, and a response has 1 to 8", frame.data.size()));
    }
    return frame;
}

uint8_t ParseLinId(std::string_view text) {
    const auto id = TakeId(text);
    if (!id) {
        throw NotationError(fmt::format("'{}' is no LIN identifier; write 00 to 3F, in hex", text));
    }
    return *id;
}

std::string LinIdText(uint8_t id) {
    return fmt::format("{:02X}", id);
}

uint8_t LinPid(uint8_t id) {
    const unsigned even = Bit(id, 0) ^ Bit(id, 1) ^ Bit(id, 2) ^ Bit(id, 4);
    const unsigned odd = 1U ^ Bit(id, 1) ^ Bit(id, 3) ^ Bit(id, 4) ^ Bit(id, 5);
    return static_cast<uint8_t>(id | even << 6U | odd << 7U);
}

uint8_t LinClassicChecksum(std::span<const uint8_t> data) {
    return Checksum(0, data);
}

uint8_t LinEnhancedChecksum(uint8_t pid, std::span<const uint8_t> data) {
    return Checksum(pid, data);
}

} // namespace vcihost
