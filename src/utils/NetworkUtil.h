#pragma once

#include <cstdint>
#include <memory>
#include <string>

// Addresses as text and the arithmetic of netmasks; addresses as numbers are in host order. Holds
// no state: safe from any thread.
class NetworkUtil {
  public:
    static std::shared_ptr<NetworkUtil> GetInstance();

    // "10.0.0.1" of "10.0.0.1/24"; all of a text without a "/".
    std::string StripMask(const std::string& address) const;

    // Dotted decimal text of a number, or of the 4 bytes at `bytes`.
    std::string IpToString(uint32_t ip) const;
    std::string IpToString(const uint8_t* bytes) const;

    // The 6 bytes at `bytes` as in "0a:00:01:02:03:04".
    std::string MacToString(const uint8_t* bytes) const;

    // The mask of a prefix length as text. 0 and less is 0.0.0.0, more than 31 is all ones.
    std::string SubnetMaskToString(int prefix) const;

    // The mask of a prefix length; more than 31 is all ones.
    uint32_t GetSubnetMask(uint32_t prefix) const;

    // The first and the last address of the network that `ip` lies in.
    uint32_t GetNetworkAddress(uint32_t ip, uint32_t mask) const;
    uint32_t GetBroadcastAddress(uint32_t ip, uint32_t mask) const;
};
