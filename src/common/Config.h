#pragma once

#include <cstdint>
#include <string>

// Arithmetic and text that several services share. A ground-floor header: every folder may use it.
// Pure functions, safe from any thread.

// Four bytes as a little-endian number.
uint32_t UcharToUint(const unsigned char* bytes);

// The head of a host frame: leading byte, 4 bytes of service length, then the service section,
// which begins with gid and sid. Eight bytes tell where a frame goes and how long it is.
constexpr uint32_t kFrameServiceOffset = 5;
constexpr uint32_t kFrameHeadSize = 8;

// The longest host frame that a service takes, in bytes.
constexpr uint32_t kReqMsgSize = 66000;

// Length in bytes of the host frame whose service section has `serviceLen` bytes: `serviceLen` + 11
// (leading byte, length field, handle, two tail bytes) rounded up to a multiple of 4. The
// arithmetic is 32-bit and wraps: a service length near 2^32 gives a small or zero frame length.
constexpr uint32_t serviceLenToMsgLen(uint32_t serviceLen) {
    return (serviceLen + 11 + 3) & ~3U;
}

// Four bytes as dotted decimal text; empty for a null pointer.
std::string GetIpStr(const unsigned char* bytes);

// True when the ones of a netmask, in network byte order, are contiguous from the top.
bool CheckSubNet(uint32_t mask);

// The count of ones in a netmask, as decimal text.
std::string ConvertMaskToPrefix(uint32_t mask);

// True when `a` and `b` agree in every bit of `mask`; all three in one byte order.
bool IsSameSubnet(uint32_t a, uint32_t b, uint32_t mask);

// Two bytes in network byte order as a port number; 0 for a null pointer.
uint16_t GetPort(const unsigned char* bytes);
