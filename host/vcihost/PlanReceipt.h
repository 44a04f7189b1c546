#pragma once

#include "vcihost/BusTrace.h"
#include "vcihost/CanPlan.h"

#include <map>

namespace vcihost {

// How one planned frame went. Times in nanoseconds; what could not be measured is empty. A plain
// value.
struct TaskReceipt {
    std::optional<uint64_t> due;         // from its first frame to the last periodic frame of any
    uint64_t seen = 0;                   // acknowledged
    uint64_t lost = 0;                   // due and not seen
    uint64_t collisions = 0;             // had to wait for another frame on the bus
    std::optional<int64_t> firstOffGrid; // first start, from the nearest place on its grid
    std::optional<int64_t> offset;       // in the window; empty without a grid, see PlanReceipt
    std::optional<int64_t> period;       // median
    // How far neighbouring starts are from whole periods apart.
    std::optional<int64_t> spacingMedian;
    std::optional<int64_t> spacingP99;
    std::optional<int64_t> spacingMax;
    std::optional<int64_t> worstWait; // from the queue to the bus
};

// A plan beside what the bus has carried.
//
// Only differences of the planned grid can be seen on a bus, so the grid is laid through the
// frames: its base is the moment for which the median deviation of the first planned task is 0. Of
// the places where that task allows it in a window, the one that the other tasks agree with best is
// taken. A task whose period does not divide the window has no fixed place in it.
struct PlanReceipt {
    std::vector<TaskReceipt> tasks; // one a planned task, in the order of the plan
    std::optional<int64_t> base;    // device time in nanoseconds when a window began
    std::map<uint8_t, double> load; // by channel: the part of the trace's time that frames took
    uint64_t lostEntries = 0;       // of the trace itself

    static PlanReceipt Make(const CanPlan& plan, const BusTrace& trace);
};

// True when the entry is a frame of the task: same channel, identifier and kind.
bool IsOfTask(const BusTrace::Entry& entry, const CanTask& task);

} // namespace vcihost
