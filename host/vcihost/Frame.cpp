#include "vcihost/Frame.h"

#include "utils/WireFormat.h"

#include <limits>
#include <stdexcept>

#include <fmt/format.h>

namespace vcihost {

namespace {

// What a frame has beyond its service section, at most: leading byte, length field, handle, tail.
constexpr size_t kMostAround = 14;

// The length field of a frame whose length agrees with it; nothing, with `fault` set, otherwise.
std::optional<uint32_t> CheckLength(std::span<const uint8_t> bytes, std::string& fault) {
    if (bytes.size() < kShortestMessage) {
        fault = fmt::format("too short, {} of at least {} bytes", bytes.size(), kShortestMessage);
        return std::nullopt;
    }
    WireReader reader(bytes);
    reader.Skip(1);
    const uint32_t n = reader.U32();
    if (n < kShortestService) {
        fault = fmt::format("service length {} leaves no room for gid and sid", n);
        return std::nullopt;
    }
    // The first comparison keeps the 32-bit arithmetic of the second from wrapping.
    if (n > bytes.size() || serviceLenToMsgLen(n) != bytes.size()) {
        const uint64_t wanted = (uint64_t{n} + kMostAround) / 4 * 4;
        fault = fmt::format("{} bytes, but service length {} makes a frame of {}", bytes.size(), n,
                            wanted);
        return std::nullopt;
    }
    return n;
}

} // namespace

Bytes BuildFrame(std::span<const uint8_t> service, uint32_t handle) {
    if (service.size() > std::numeric_limits<uint32_t>::max() - kMostAround) {
        throw std::length_error("a service section of 4 GiB or more has no frame");
    }
    const auto n = static_cast<uint32_t>(service.size());
    Bytes frame(serviceLenToMsgLen(n));
    WireWriter(frame).U8(0).U32(n).Bytes(service).U32(handle);
    return frame;
}

std::optional<Message> ParseMessage(std::span<const uint8_t> bytes, std::string* fault) {
    std::string text;
    std::optional<Message> message;
    if (const auto n = CheckLength(bytes, text)) {
        if (bytes[0] != 0) {
            text = fmt::format("leading byte 0x{:02x} is not 0", bytes[0]);
        } else {
            const auto service = bytes.subspan(kServiceOffset, *n);
            message =
                Message{service[0], service[1], service, service.subspan(kShortestService), bytes};
        }
    }
    if (fault != nullptr && !message) {
        *fault = text;
    }
    return message;
}

std::optional<Request> ParseRequest(std::span<const uint8_t> bytes, std::string* fault) {
    std::string text;
    const auto n = CheckLength(bytes, text);
    if (!n) {
        if (fault != nullptr) {
            *fault = text;
        }
        return std::nullopt;
    }
    const auto service = bytes.subspan(kServiceOffset, *n);
    WireReader behind(bytes.subspan(kServiceOffset + *n));
    return Request{service[0], service[1], service.subspan(kShortestService), behind.U32()};
}

} // namespace vcihost
