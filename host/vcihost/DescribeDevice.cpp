#include "common/GlobalEnums.h"
#include "vcihost/DescribeParts.h"
#include "vcihost/DeviceInfo.h"
#include "vcihost/DeviceTime.h"

#include <fmt/format.h>

// Group 1 in words.
namespace vcihost {

namespace {

constexpr uint8_t kGid = DEV_CFG_SERVICE_GID;

constexpr const char* kReset = "reset the board";
constexpr const char* kVersion = "device version";
constexpr const char* kClear = "clear all configuration";
constexpr const char* kTime = "device time";
constexpr const char* kUid = "device uid";
constexpr const char* kBuild = "device build";
constexpr const char* kSerial = "write the serial number";

// Digits of a serial number as they stand, other bytes as dots.
std::string Printable(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        constexpr uint8_t kFirst = 0x20;
        constexpr uint8_t kLast = 0x7E;
        text += byte >= kFirst && byte <= kLast ? static_cast<char>(byte) : '.';
    }
    return text;
}

std::optional<Words> Serial(std::span<const uint8_t> payload) {
    if (payload.size() != kSerialDigits) {
        return std::nullopt;
    }
    return Words{fmt::format("{}: NV{}", kSerial, Printable(payload)),
                 {{"serial", Printable(payload)}}};
}

std::optional<Words> Time(std::span<const uint8_t> payload) {
    return TimeWords("", payload);
}

std::optional<Words> Reset(std::span<const uint8_t> payload) {
    return TimeWords("the board goes down, ", payload);
}

std::optional<Words> Cleared(std::span<const uint8_t> payload) {
    return TimeWords("cleared and started again, ", payload);
}

std::optional<Words> VersionAnswer(std::span<const uint8_t> payload) {
    const auto version = DeviceVersion::From({kGid, kDeviceVersionSid, {}, payload, {}});
    if (!version) {
        return std::nullopt;
    }
    const std::string hardware = DeviceVersion::Text(version->hardware);
    const std::string kernel = DeviceVersion::Text(version->kernel);
    const std::string software = DeviceVersion::Text(version->software);
    return Words{fmt::format("hardware {}, kernel {}, software {}, device time {}", hardware,
                             kernel, software, TimeText(version->time)),
                 {{"hardware", hardware},
                  {"kernel", kernel},
                  {"software", software},
                  {"device_ns", version->time}}};
}

std::optional<Words> BuildAnswer(std::span<const uint8_t> payload) {
    const auto build = DeviceBuild::From({kGid, kDeviceBuildSid, {}, payload, {}});
    if (!build) {
        return std::nullopt;
    }
    return Words{fmt::format("built {}, device time {}", build->DateText(), TimeText(build->time)),
                 {{"form", uint64_t{build->form}},
                  {"date", uint64_t{build->date}},
                  {"device_ns", build->time}}};
}

std::optional<Words> UidAnswer(std::span<const uint8_t> payload) {
    const auto uid = DeviceUid({kGid, kDeviceUidSid, {}, payload, {}});
    if (!uid) {
        return std::nullopt;
    }
    return Words{"uid " + ToHex(*uid), {{"uid", ToHex(*uid)}}};
}

constexpr ServiceWords kServices[] = {
    {kGid, kDeviceResetSid, false, kReset, PlainWords<kReset>, Reset},
    {kGid, kDeviceVersionSid, false, kVersion, PlainWords<kVersion>, VersionAnswer},
    {kGid, kDeviceClearSid, false, kClear, PlainWords<kClear>, Cleared},
    {kGid, kDeviceTimeSid, false, kTime, PlainWords<kTime>, Time},
    {kGid, kDeviceUidSid, false, kUid, PlainWords<kUid>, UidAnswer},
    {kGid, kDeviceBuildSid, false, kBuild, PlainWords<kBuild>, BuildAnswer},
    {kGid, kDeviceSerialSid, false, kSerial, Serial, DoneWords},
};

} // namespace

std::span<const ServiceWords> DeviceGroupWords() {
    return kServices;
}

} // namespace vcihost
