#pragma once

#include <cstdint>

// What the CAN replay counts in: services, states and frames.

// Services of group 18.
enum CanReplayGroup : uint8_t {
    DOWNLOAD_REPLAY_DATA_SID = 1,
    UPLOAD_REPLAY_SIGNAL_SID = 2, // device to host only
    REPLAY_FINISH_SID = 3,
    REPLAY_CANCEL_SID = 4,
    REPLAY_PAUSE_SID = 5,
    REPLAY_CONTINUE_SID = 6,
};

enum class ReplayState : uint8_t {
    IDLE = 0,
    RUNNING = 1,
    CANCEL = 2,
    PAUSE = 3,
    CONTINUE = 4,
    FINISH = 5,
};

struct ReplayCanTxFrameType {
    uint32_t id;      // bit 31: extended
    uint8_t reallen;  // bytes of data, 0 to 64, for a classic frame too
    uint8_t dlc;      // not set
    uint8_t FDF;      // 1: CAN FD
    uint8_t BRS;      // 1: bit rate switch of a CAN FD frame, remote of a classic one
    uint8_t data[64]; // the first reallen bytes
};

struct ReplayCanFrameType {
    uint8_t channl;        // as the host names it: only 0 to 5 are channels
    uint32_t intervalTime; // microseconds before this frame
    ReplayCanTxFrameType Frame;
};
