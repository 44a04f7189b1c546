#pragma once

#include <cstdint>

// Services of group 1.
enum CommCfgGroup : uint8_t {
    RESET_DEV_SID = 1,
    GET_DEV_VERSION_SID = 6,
    CLEAR_ALL_CONFIG_SID = 8,
    GET_DEV_TIME_SID = 18,
    GET_DEV_UUID = 20,
    GET_DEV_BUILDINFO_SID = 24,
    WRITE_SEQUENCE = 25,
};

// The file that a clear of the whole configuration leaves for the next start of the application,
// which answers it.
inline constexpr const char* kClearFlag = "/tmp/vci-clear.flag";
