#pragma once

#include <cstdint>

// Register blocks of a board's time base and synchronisation: physical base addresses, and offsets
// in bytes from them. Immutable, safe from any thread.
class BasicConfig {
  public:
    BasicConfig() = default;
    virtual ~BasicConfig() = default;
    BasicConfig(const BasicConfig&) = delete;
    BasicConfig& operator=(const BasicConfig&) = delete;

    virtual uint32_t GetTimestampBaseAddr() const = 0;
    virtual uint16_t GetTimestampLowOffset() const = 0;
    virtual uint16_t GetTimestampHighOffset() const = 0;
    virtual uint32_t GetTimeSyncMSModeOffset() const = 0;
    virtual uint32_t GetTimeSyncStateOffset() const = 0;
    virtual uint32_t GetTimeSyncBaseAddr() const = 0;
};
