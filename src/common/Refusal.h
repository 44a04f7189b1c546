#pragma once

#include "common/Config.h"
#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"

#include <cstdint>
#include <span>

constexpr uint32_t kRefusalServiceLength = 5; // gid, sid, code, gid and sid that are refused
constexpr uint32_t kRefusalLength = serviceLenToMsgLen(kRefusalServiceLength);

// Writes the refusal of a request, all but the two bytes that fill up the frame.
inline void WriteRefusal(std::span<uint8_t, kRefusalLength> frame, NegtiveErrorCode code,
                         uint8_t gid, uint8_t sid, uint32_t handle) {
    WireWriter(frame)
        .U8(0)
        .U32(kRefusalServiceLength)
        .U8(ERR_INFO_SERVICE_GID)
        .U8(SERVICE_ERR_SID)
        .U8(code)
        .U8(gid)
        .U8(sid)
        .U32(handle);
}
