#pragma once

#include "vcihost/CanFrame.h"
#include "vcihost/Frame.h"
#include "vcihost/ReplayFeed.h"

// Service sections of group 18, CAN replay. Channels are 0 to 5, as everywhere here; this group
// alone sends them so. Pure functions, safe from any thread.
namespace vcihost {

// Service ids of group 18.
constexpr uint8_t kReplayDataSid = 1;
constexpr uint8_t kReplayReadySid = 2; // the device sends it
constexpr uint8_t kReplayFinishSid = 3;
constexpr uint8_t kReplayCancelSid = 4;
constexpr uint8_t kReplayPauseSid = 5;
constexpr uint8_t kReplayContinueSid = 6;
constexpr uint8_t kReplayEndSid = 128; // the device sends it

// The longest interval before a frame, in microseconds: the device counts with a sign.
constexpr uint32_t kLongestReplayInterval = 0x7FFFFFFF;

// One frame of a replay.
struct ReplayFrame {
    uint8_t channel = 0;   // 0 to 5
    uint32_t interval = 0; // microseconds behind the frame before
    CanFrame frame;
};

// A batch of frames, to kReplayRing of them. Has no answer unless it is refused. Throws
// std::invalid_argument for more frames, and for one that no request can carry.
Bytes ReplayDataRequest(std::span<const ReplayFrame> frames);

// The requests that consist of their sid.
Bytes ReplayRequest(uint8_t sid);

// The device wants the next batch.
bool IsReplayReady(const Message& message);

// All frames are sent, and the last one has had its time on the bus.
bool IsReplayEnd(const Message& message);

} // namespace vcihost
