#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

// How CAN channels and lengths stand in host messages. A ground-floor header: every folder may use
// it.

constexpr int kCanChannels = 6;
constexpr uint8_t kFirstCanCode = 8; // channel 0 in host messages, and the others behind it
constexpr uint8_t kLastCanCode = kFirstCanCode + kCanChannels - 1;

// The channel 0 to 5 of its number in a message; nothing for a number that is no channel's.
constexpr std::optional<uint8_t> CanChannelOfCode(uint8_t code) {
    if (code < kFirstCanCode || code > kLastCanCode) {
        return std::nullopt;
    }
    return static_cast<uint8_t>(code - kFirstCanCode);
}

// The flags byte of a frame that the host gives. Bits 4 and 7 mean nothing.
constexpr uint8_t kDlcMask = 0x0F;
constexpr uint8_t kRemoteOrBrs = 0x20; // of a classic frame remote, of a CAN FD frame the switch
constexpr uint8_t kFdFrame = 0x40;

// Payload length by DLC code.
constexpr std::array<uint8_t, 16> kDlcToLength{0, 1,  2,  3,  4,  5,  6,  7,
                                               8, 12, 16, 20, 24, 32, 48, 64};

// DLC code by payload length; 0 for a length that no code has.
constexpr std::array<uint8_t, 256> kLengthToDlc = [] {
    std::array<uint8_t, 256> table{};
    for (size_t dlc = 0; dlc < kDlcToLength.size(); ++dlc) {
        table[kDlcToLength[dlc]] = static_cast<uint8_t>(dlc);
    }
    return table;
}();
