#include "common/GlobalEnums.h"
#include "vcihost/Describe.h"
#include "vcihost/ErrorUpload.h"

// Group 104 in words.
namespace vcihost {

namespace {

std::optional<Words> BusTrouble(std::span<const uint8_t> payload) {
    const auto upload = ErrorUpload::From({ERR_INFO_SERVICE_GID, BUS_TROUBLE_SID, {}, payload, {}});
    if (!upload) {
        return std::nullopt;
    }
    return Words{upload->Text(),
                 {{"device_ns", upload->time},
                  {"count", uint64_t{upload->count}},
                  {"bus", upload->BusText()},
                  {"channel", uint64_t{upload->channel}},
                  {"code", uint64_t{upload->code}}}};
}

constexpr ServiceWords kServices[] = {
    {ERR_INFO_SERVICE_GID, BUS_TROUBLE_SID, true, "bus trouble", nullptr, BusTrouble},
};

} // namespace

std::span<const ServiceWords> ErrorGroupWords() {
    return kServices;
}

} // namespace vcihost
