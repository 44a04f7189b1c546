#pragma once

#include "vcihost/LinRecord.h"
#include "vcihost/LinTable.h"
#include "vcihost/Percentile.h"

namespace vcihost {

// One frame that was seen on the bus while a schedule ran.
struct LinSeen {
    uint8_t id = 0;     // 0 to 63
    uint64_t start = 0; // device time, nanoseconds
    bool failed = false;
};

// How one entry of a schedule went. Times in nanoseconds; what could not be measured is empty. A
// plain value.
struct LinSlotReceipt {
    int64_t at = 0;              // from the start of a cycle, as the table has it
    std::optional<int64_t> went; // the same as measured, median
    uint64_t due = 0;
    uint64_t seen = 0;
    uint64_t lost = 0;   // due and not seen
    uint64_t failed = 0; // seen with an error
    Spread late;         // of the frames; below 0 is too early

    // The farthest from due, either way.
    std::optional<int64_t> Worst() const;
};

// A schedule beside what was seen of it.
//
// The device keeps time within a cycle and takes a new start for each, so the first frame that is
// seen of a cycle is the mark for the others of it; it is due a whole cycle behind the mark of the
// cycle before. So one late frame makes the next mark early. The very first frame has no mark.
// Frames carry no number, and a device sends them in the order of its table: each is taken for the
// place of its identifier in the cycle that follows the frame before, and what was passed over is
// lost. A whole cycle that is missing is told as one that came late.
struct LinReceipt {
    std::vector<LinSlotReceipt> slots; // one an entry of the table, in its order
    int64_t planned = 0;               // length of a cycle
    std::optional<int64_t> measured;   // the same, median
    uint64_t others = 0;               // frames that no entry can have sent

    // `seen` in order of time; of it the schedule's first frame is one, if it was not lost.
    // `stopped`: device time when the schedule was stopped; entries whose slot was over by then
    // were due. When nothing was seen nothing is known to be due.
    static LinReceipt Make(std::span<const LinSlot> table, uint32_t bitrate,
                           std::span<const LinSeen> seen, uint64_t stopped);
};

} // namespace vcihost
