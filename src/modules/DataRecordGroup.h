#pragma once

#include <cstdint>

// Services of group 9.
enum DataRecordGroup : uint8_t {
    CFG_LIN_REC_SWITCH_SID = 12,
    CFG_ETH_REC_SWITCH_SID = 22,
    LIN_REC_DATA_SID = 26,   // upload
    LIN_REC_WAKEUP_SID = 27, // upload
};
