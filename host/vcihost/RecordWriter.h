#pragma once

#include "vcihost/RecordChannel.h"

#include <array>

namespace vcihost {

// What was recorded of one channel.
struct ChannelCounts {
    uint64_t received = 0; // records that came
    uint64_t accepted = 0; // those that the filter let through
};

// By RecordChannel::Index().
using RecordCounts = std::array<ChannelCounts, kRecordChannels>;

// Where records go. Used on one thread.
class RecordWriter {
  public:
    RecordWriter() = default;
    virtual ~RecordWriter() = default;
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    // All of these throw what the writer's target throws.
    virtual void Write(const CanFrameRecord& record) = 0;
    virtual void Write(const CanErrorRecord& record) = 0;
    virtual void Write(const LinFrameRecord& record) = 0;
    virtual void Write(const LinWakeupRecord& record) = 0;

    // Records are known to be missing between the one before and the next one.
    virtual void Lost(uint64_t count) = 0;

    // Hands on what was kept back for speed; now and then, so that little is lost with the program.
    virtual void Flush() = 0;

    // Nothing waits on the link: what somebody watches is to be shown.
    virtual void Idle() {}

    // Behind the last record.
    virtual void Finish(const RecordCounts& counts) = 0;
};

} // namespace vcihost
