#include "vcihost/ErrorUpload.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/DeviceTime.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr size_t kPayloadLength = 12;

} // namespace

std::optional<ErrorUpload> ErrorUpload::From(const Message& message) {
    if (message.gid != ERR_INFO_SERVICE_GID || message.sid != BUS_TROUBLE_SID ||
        message.payload.size() != kPayloadLength) {
        return std::nullopt;
    }
    WireReader reader(message.payload);
    ErrorUpload upload{};
    upload.time = reader.U64();
    upload.count = reader.U8();
    upload.busType = reader.U8();
    upload.channel = reader.U8();
    upload.code = reader.U8();
    return upload;
}

std::string ErrorUpload::BusText() const {
    switch (busType) {
    case Can:
        return "CAN";
    case Kline:
        return "K-line";
    case Lin:
        return "LIN";
    case CanFD:
        return "CAN FD";
    case SyncLine:
        return "sync line";
    default:
        return fmt::format("bus type {}", busType);
    }
}

std::string ErrorUpload::Text() const {
    const std::string times = count == 1 ? "" : fmt::format(", {} errors", count);
    if (IsSyncDrop()) {
        return fmt::format("sync line dropped at {}{}", TimeText(time), times);
    }
    return fmt::format("{} channel {}: error code {} at {}{}", BusText(), channel, code,
                       TimeText(time), times);
}

} // namespace vcihost
