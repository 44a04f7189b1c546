#include "modules/CanPacket.h"

#include "common/Config.h"

#include <algorithm>
#include <string_view>

#include <net/if.h>

uint32_t CanPacket::GetId() const {
    return UcharToUint(bytes_.data() + kId);
}

int CanPacket::GetChannel() const {
    constexpr std::string_view kPrefix = "can";
    char buffer[IF_NAMESIZE] = {};
    if (if_indextoname(bytes_[kIndexLow], buffer) == nullptr) {
        return kUnknown;
    }
    const std::string_view name(buffer);
    if (!name.starts_with(kPrefix) || name.size() == kPrefix.size()) {
        return kUnknown;
    }
    const char digit = name[kPrefix.size()];
    return digit >= '0' && digit <= '9' ? digit - '0' : kUnknown;
}

std::span<const uint8_t> CanPacket::Payload(size_t length) const {
    return bytes_.subspan(kPayload, std::min(length, bytes_.size() - kPayload));
}
