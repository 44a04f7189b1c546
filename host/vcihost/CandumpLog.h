#pragma once

#include "vcihost/CanRecord.h"

// The text log of candump(1), which also canplayer(1) and log2asc(1) read. Pure functions, safe
// from any thread.
namespace vcihost {

// One line with its line feed: "(1700000000.123456) can0 123#DEADBEEF\n", from wall-clock time in
// nanoseconds, of which six decimals stand. Nothing stands behind the data: readers would take it
// for a part of it.
std::string CandumpLogLine(const CanFrameRecord& record, uint64_t wall);

// The same of an error frame: "(1700000000.123456) can0 20000008#0000000000030000\n".
std::string CandumpLogLine(const CanErrorRecord& record, uint64_t wall);

// The name that candump -l gives a log that starts at this wall-clock time, nanoseconds since 1970:
// "candump-2023-11-14_221320.log", in local time.
std::string CandumpLogName(uint64_t wall);

} // namespace vcihost
