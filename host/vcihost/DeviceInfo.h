#pragma once

#include "vcihost/Frame.h"

#include <array>
#include <string_view>

// Group 1: the device as a whole. Pure functions and plain values, safe from any thread.
namespace vcihost {

// Service ids of group 1.
constexpr uint8_t kDeviceResetSid = 1;
constexpr uint8_t kDeviceVersionSid = 6;
constexpr uint8_t kDeviceClearSid = 8;
constexpr uint8_t kDeviceTimeSid = 18;
constexpr uint8_t kDeviceUidSid = 20;
constexpr uint8_t kDeviceBuildSid = 24;
constexpr uint8_t kDeviceSerialSid = 25;

constexpr size_t kSerialDigits = 10;

// The requests that consist of their sid: all but that of the serial number.
Bytes DeviceRequest(uint8_t sid);

// Writes the serial number, of which the device stores "NV" and these. Throws NotationError for
// other than ten letters or digits.
Bytes DeviceSerialRequest(std::string_view digits);

struct DeviceVersion {
    std::array<uint8_t, 2> hardware;
    std::array<uint8_t, 3> kernel;
    std::array<uint8_t, 3> software;
    uint64_t time; // device time, nanoseconds

    // Nothing for any other message; the same below.
    static std::optional<DeviceVersion> From(const Message& message);

    // "1.2", "1.2.0".
    static std::string Text(std::span<const uint8_t> numbers);
};

struct DeviceBuild {
    uint8_t form;  // 2: a date follows
    uint32_t date; // 20251023
    uint64_t time; // device time, nanoseconds

    static std::optional<DeviceBuild> From(const Message& message);

    // "2025-10-23".
    std::string DateText() const;
};

// The card identification register of the device's memory, 16 bytes.
std::optional<Bytes> DeviceUid(const Message& message);

} // namespace vcihost
