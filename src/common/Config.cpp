#include "common/Config.h"

#include <bit>

#include <arpa/inet.h>

uint32_t UcharToUint(const unsigned char* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

std::string GetIpStr(const unsigned char* bytes) {
    if (bytes == nullptr) {
        return "";
    }
    return std::to_string(bytes[0]) + "." + std::to_string(bytes[1]) + "." +
           std::to_string(bytes[2]) + "." + std::to_string(bytes[3]);
}

bool CheckSubNet(uint32_t mask) {
    const uint32_t v = ~ntohl(mask);
    return ((v + 1) & v) == 0;
}

std::string ConvertMaskToPrefix(uint32_t mask) {
    return std::to_string(std::popcount(mask));
}

bool IsSameSubnet(uint32_t a, uint32_t b, uint32_t mask) {
    return ((a ^ b) & mask) == 0;
}

uint16_t GetPort(const unsigned char* bytes) {
    if (bytes == nullptr) {
        return 0;
    }
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}
