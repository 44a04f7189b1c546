#pragma once

#include "versions/BasicConfig.h"

class KestroProBasicConfig : public BasicConfig {
  public:
    uint32_t GetTimestampBaseAddr() const override { return 0x81000000; }
    uint16_t GetTimestampLowOffset() const override { return 0x24; }
    uint16_t GetTimestampHighOffset() const override { return 0x28; }
    uint32_t GetTimeSyncMSModeOffset() const override { return 0x8; }
    uint32_t GetTimeSyncStateOffset() const override { return 0xC; }
    uint32_t GetTimeSyncBaseAddr() const override { return 0x82000000; }
};
