#pragma once

#include "net/planner/CanFrameTime.h"
#include "vcihost/CanTask.h"

#include <span>

// What the device's offset planner makes of a set of periodic frames, without a device: it is the
// same planner. docs/scheduler.md has its rules. Pure functions, safe from any thread.
namespace vcihost {

struct PlannedTask {
    CanTask task;
    uint32_t periodUs = 0;
    uint32_t durationUs = 0;   // time on the bus, as the planner reckons it
    uint32_t offsetUs = 0;     // place in the window
    uint32_t conflicts = 0;    // instances in a window that meet another frame
    uint64_t firstDelayUs = 0; // from the moment of planning to the first frame
};

struct CanPlan {
    std::vector<PlannedTask> tasks; // in the order of planning
    uint64_t windowUs = 1;          // the pattern repeats after it

    // The channels that have tasks, in rising order.
    std::vector<uint8_t> Channels() const;

    // The part of the time that the channel's frames take, above 1 when they do not fit.
    double Load(uint8_t channel) const;
};

// The plan of a planner that has planned nothing before, all requests at one moment: one request a
// channel in order of first appearance, as many as it takes. All channels have these rates, at
// least 1 bit/s, the data rate only if there is a CAN FD frame. Throws NotationError for a frame
// that takes less than a microsecond, which the device does not plan.
CanPlan PlanCanTasks(std::span<const CanTask> tasks, const net::CanBitRates& rates);

} // namespace vcihost
