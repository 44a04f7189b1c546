#include "utils/NetworkUtil.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr uint32_t kAddressBits = 32;
constexpr size_t kMacBytes = 6;

} // namespace

std::shared_ptr<NetworkUtil> NetworkUtil::GetInstance() {
    static const auto instance = std::make_shared<NetworkUtil>();
    return instance;
}

std::string NetworkUtil::StripMask(const std::string& address) const {
    return address.substr(0, address.find('/'));
}

std::string NetworkUtil::IpToString(uint32_t ip) const {
    const uint8_t bytes[] = {static_cast<uint8_t>(ip >> 24), static_cast<uint8_t>(ip >> 16),
                             static_cast<uint8_t>(ip >> 8), static_cast<uint8_t>(ip)};
    return IpToString(bytes);
}

std::string NetworkUtil::IpToString(const uint8_t* bytes) const {
    return std::to_string(bytes[0]) + '.' + std::to_string(bytes[1]) + '.' +
           std::to_string(bytes[2]) + '.' + std::to_string(bytes[3]);
}

std::string NetworkUtil::MacToString(const uint8_t* bytes) const {
    constexpr std::string_view kHex = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < kMacBytes; ++i) {
        if (i != 0) {
            text += ':';
        }
        text += kHex[bytes[i] >> 4];
        text += kHex[bytes[i] & 0xF];
    }
    return text;
}

std::string NetworkUtil::SubnetMaskToString(int prefix) const {
    return IpToString(GetSubnetMask(static_cast<uint32_t>(std::max(prefix, 0))));
}

uint32_t NetworkUtil::GetSubnetMask(uint32_t prefix) const {
    if (prefix == 0) {
        return 0;
    }
    return ~uint32_t{0} << (kAddressBits - std::min(prefix, kAddressBits));
}

uint32_t NetworkUtil::GetNetworkAddress(uint32_t ip, uint32_t mask) const {
    return ip & mask;
}

uint32_t NetworkUtil::GetBroadcastAddress(uint32_t ip, uint32_t mask) const {
    return ip | ~mask;
}
