#include "vcihost/NegativeResponse.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr size_t kServiceLength = 5; // gid, sid, code, gid and sid of the request

} // namespace

std::optional<NegativeResponse> NegativeResponse::From(const Message& message) {
    if (message.gid != ERR_INFO_SERVICE_GID || message.sid != SERVICE_ERR_SID ||
        message.service.size() != kServiceLength) {
        return std::nullopt;
    }
    WireReader reader(message.whole.subspan(kServiceOffset + kShortestService));
    NegativeResponse response{};
    response.code = reader.U8();
    response.gid = reader.U8();
    response.sid = reader.U8();
    response.handle = reader.U32();
    return response;
}

std::string NegativeResponse::CodeText() const {
    const char* const name = NegtiveErrorCodeName(code);
    return name != nullptr ? fmt::format("{} ({})", name, code)
                           : fmt::format("unnamed code {}", code);
}

std::string NegativeResponse::Text() const {
    return fmt::format("{} to group {} service {}, handle 0x{:08x}", CodeText(), gid, sid, handle);
}

} // namespace vcihost
