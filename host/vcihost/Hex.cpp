#include "vcihost/Hex.h"

#include <charconv>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr int kNoDigit = -1;

int DigitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return kNoDigit;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

int DigitAt(std::string_view text, size_t at) {
    if (at >= text.size() || IsBlank(text[at])) {
        throw HexError(fmt::format(
            "odd number of hex digits: the byte at character {} has only one digit", at));
    }
    const int value = DigitValue(text[at]);
    if (value == kNoDigit) {
        const auto c = static_cast<unsigned char>(text[at]);
        const bool printable = c > ' ' && c < 0x7F;
        throw HexError(
            printable ? fmt::format("character {} ('{}') is not a hex digit", at + 1, text[at])
                      : fmt::format("character {} (code 0x{:02x}) is not a hex digit", at + 1, c));
    }
    return value;
}

} // namespace

Bytes ParseHex(std::string_view text) {
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (size_t at = 0; at < text.size();) {
        if (IsBlank(text[at])) {
            ++at;
            continue;
        }
        const int high = DigitAt(text, at);
        const int low = DigitAt(text, at + 1);
        bytes.push_back(static_cast<uint8_t>(high << 4 | low));
        at += 2;
    }
    return bytes;
}

std::string ToHex(std::span<const uint8_t> bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

std::string ToSpacedHex(std::span<const uint8_t> bytes) {
    std::string text;
    text.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) {
            text += ' ';
        }
        text += ToHex(bytes.subspan(i, 1));
    }
    return text;
}

std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t max) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) {
        text.remove_prefix(2);
    }
    uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, hex ? 16 : 10);
    if (error != std::errc() || stop != end || value > max) {
        return std::nullopt;
    }
    return value;
}

} // namespace vcihost
