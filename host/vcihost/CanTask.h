#pragma once

#include "vcihost/CanFrame.h"

// Periodic frames as people type them. Pure functions, safe from any thread.
namespace vcihost {

// One periodic frame on one channel. A plain value.
struct CanTask {
    uint8_t channel = 0;
    CanFrame frame;
    uint16_t periodMs = 0; // at least 1
};

// "123#DEADBEEF@10ms", the period in whole milliseconds up to 65535. Throws NotationError.
CanTask ParseCanTask(std::string_view text, uint8_t channel);

// The same, with "can1:" in front where it is another channel than `channel`.
CanTask ParseChannelTask(std::string_view text, uint8_t channel);

// Throws NotationError when an identifier stands twice on one channel: the device would replace the
// first frame by the second.
void CheckDistinct(const std::vector<CanTask>& tasks);

} // namespace vcihost
