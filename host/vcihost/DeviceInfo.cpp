#include "vcihost/DeviceInfo.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/Notation.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vcihost {

namespace {

constexpr size_t kVersionLength = 16;
constexpr size_t kBuildLength = 13;
constexpr size_t kUidLength = 16;

bool Is(const Message& message, uint8_t sid, size_t length) {
    return message.gid == DEV_CFG_SERVICE_GID && message.sid == sid &&
           message.payload.size() == length;
}

} // namespace

Bytes DeviceRequest(uint8_t sid) {
    return {DEV_CFG_SERVICE_GID, sid};
}

Bytes DeviceSerialRequest(std::string_view digits) {
    const bool plain = std::all_of(digits.begin(), digits.end(), [](char each) {
        return std::isalnum(static_cast<unsigned char>(each)) != 0;
    });
    if (digits.size() != kSerialDigits || !plain) {
        throw NotationError(fmt::format("'{}' is no serial number: write {} digits or letters",
                                        digits, kSerialDigits));
    }
    Bytes service = DeviceRequest(kDeviceSerialSid);
    service.insert(service.end(), digits.begin(), digits.end());
    return service;
}

std::optional<DeviceVersion> DeviceVersion::From(const Message& message) {
    if (!Is(message, kDeviceVersionSid, kVersionLength)) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    DeviceVersion version{};
    for (uint8_t* const number :
         {&version.hardware[0], &version.hardware[1], &version.kernel[0], &version.kernel[1],
          &version.kernel[2], &version.software[0], &version.software[1], &version.software[2]}) {
        *number = reader.U8();
    }
    version.time = reader.U64();
    return version;
}

std::string DeviceVersion::Text(std::span<const uint8_t> numbers) {
    return fmt::format("{}", fmt::join(numbers, "."));
}

std::optional<DeviceBuild> DeviceBuild::From(const Message& message) {
    if (!Is(message, kDeviceBuildSid, kBuildLength)) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    DeviceBuild build{};
    build.form = reader.U8();
    for (size_t i = 0; i < sizeof(build.date); ++i) { // the one number that is big-endian
        build.date = build.date << 8U | reader.U8();
    }
    build.time = reader.U64();
    return build;
}

std::string DeviceBuild::DateText() const {
    constexpr uint32_t kYear = 10000;
    constexpr uint32_t kMonth = 100;
    return fmt::format("{:04}-{:02}-{:02}", date / kYear, date % kYear / kMonth, date % kMonth);
}

std::optional<Bytes> DeviceUid(const Message& message) {
    if (!Is(message, kDeviceUidSid, kUidLength)) {
        return std::nullopt;
    }
    return Bytes(message.payload.begin(), message.payload.end());
}

} // namespace vcihost
