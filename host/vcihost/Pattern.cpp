#include "vcihost/Pattern.h"

#include <algorithm>

#include <fmt/format.h>

namespace vcihost {

namespace {

// More than the device's largest ring holds.
constexpr size_t kMostBytes = 32UL * 1024 * 1024;

constexpr std::string_view kBlanks = " \t\r\n";

} // namespace

Pattern Pattern::Parse(std::string_view text) {
    Pattern pattern;
    for (size_t at = 0; at < text.size();) {
        if (kBlanks.find(text[at]) != std::string_view::npos) {
            ++at;
            continue;
        }
        if (pattern.anyRest_) {
            throw HexError(fmt::format("character {}: nothing may follow the *", at + 1));
        }
        if (text[at] == '*') {
            size_t end = at + 1;
            while (end < text.size() && text[end] >= '0' && text[end] <= '9') {
                ++end;
            }
            if (end == at + 1) {
                pattern.anyRest_ = true;
                at = end;
                continue;
            }
            const auto times = ParseNumber(text.substr(at + 1, end - at - 1), kMostBytes);
            const bool behindByte = at > 0 && kBlanks.find(text[at - 1]) == std::string_view::npos;
            if (!times || *times == 0 || !behindByte || pattern.bytes_.empty() ||
                pattern.bytes_.size() + *times > kMostBytes) {
                throw HexError(fmt::format(
                    "character {}: *N stands right behind the byte that is to come N times, "
                    "with N from 1",
                    at + 1));
            }
            const auto last = pattern.bytes_.back(); // a copy: the vector grows
            pattern.bytes_.insert(pattern.bytes_.end(), *times - 1, last);
            at = end;
            continue;
        }
        const std::string_view byte = text.substr(at, 2);
        if (byte == "..") {
            pattern.bytes_.emplace_back(std::nullopt);
        } else {
            try {
                pattern.bytes_.emplace_back(ParseHex(byte).at(0));
            } catch (const HexError&) {
                throw HexError(
                    fmt::format("character {}: '{}' is no byte of two hex digits", at + 1, byte));
            }
        }
        at += byte.size();
    }
    return pattern;
}

std::optional<size_t> Pattern::Mismatch(std::span<const uint8_t> bytes) const {
    const size_t both = std::min(bytes.size(), bytes_.size());
    for (size_t i = 0; i < both; ++i) {
        if (bytes_[i] && *bytes_[i] != bytes[i]) {
            return i;
        }
    }
    if (bytes.size() < bytes_.size() || (bytes.size() > bytes_.size() && !anyRest_)) {
        return both;
    }
    return std::nullopt;
}

std::optional<Bytes> Pattern::Exact() const {
    if (anyRest_) {
        return std::nullopt;
    }
    Bytes exact;
    exact.reserve(bytes_.size());
    for (const auto& byte : bytes_) {
        if (!byte) {
            return std::nullopt;
        }
        exact.push_back(*byte);
    }
    return exact;
}

} // namespace vcihost
