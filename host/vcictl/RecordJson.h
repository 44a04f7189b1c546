#pragma once

#include "vcihost/CanRecord.h"
#include "vcihost/LinRecord.h"

// Records as JSON objects of one line, without a line feed. `wall` is the record's wall-clock time,
// nanoseconds.
std::string RecordJson(const vcihost::CanFrameRecord& record, uint64_t wall);
std::string RecordJson(const vcihost::CanErrorRecord& record, uint64_t wall);
std::string RecordJson(const vcihost::LinFrameRecord& record, uint64_t wall);
std::string RecordJson(const vcihost::LinWakeupRecord& record, uint64_t wall);
