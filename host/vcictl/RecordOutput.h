#pragma once

#include "vcictl/Output.h"
#include "vcihost/CandumpView.h"
#include "vcihost/ClockPair.h"
#include "vcihost/RecordWriter.h"

#include <string>

// How records look on standard output.
enum class RecordStyle {
    View, // lines for people
    Log,  // lines of the text log
    Json  // one object a record
};

// Records on standard output, many at a time while the device sends without pause. Used on one
// thread.
class RecordOutput : public vcihost::RecordWriter {
  public:
    // `out` must outlive it. `time` counts for the view only.
    RecordOutput(Output& out, const vcihost::ClockPair& clock, RecordStyle style,
                 vcihost::ViewTime time)
        : out_(out), clock_(clock), style_(style), view_(time) {}

    // These throw as Output does.
    void Write(const vcihost::CanFrameRecord& record) override;
    void Write(const vcihost::CanErrorRecord& record) override;
    // A log cannot hold these, and is not made where there are any.
    void Write(const vcihost::LinFrameRecord& record) override;
    void Write(const vcihost::LinWakeupRecord& record) override;
    void Lost(uint64_t count) override;
    void Flush() override;
    void Idle() override { Flush(); }
    void Finish(const vcihost::RecordCounts& counts) override;

  private:
    template <typename Record> void Add(const Record& record);
    template <typename Record> void AddLin(const Record& record);
    void FlushWhenLong();

    Output& out_;
    vcihost::ClockPair clock_;
    RecordStyle style_;
    vcihost::CandumpView view_;
    std::string text_; // not yet written
};
