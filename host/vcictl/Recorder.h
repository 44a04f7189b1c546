#pragma once

#include "vcihost/RecordSelection.h"
#include "vcihost/RecordWriter.h"

#include <memory>

// What a recording has come to so far.
struct RecordTotals {
    uint64_t frames = 0;
    uint64_t errors = 0; // LIN frames with an error among them
    uint64_t wakeups = 0;
    uint64_t filtered = 0;   // records that a filter held back
    uint64_t unreadable = 0; // messages that are damaged, or records of no known form

    uint64_t Records() const { return frames + errors + wakeups; }
};

// Takes the records out of what the device sends, and hands on those that are wanted. Used on one
// thread.
class Recorder {
  public:
    using Writers = std::vector<std::unique_ptr<vcihost::RecordWriter>>;

    // `most`: records that are taken; 0 for no limit.
    Recorder(vcihost::RecordSelection selection, Writers writers, uint64_t most)
        : selection_(std::move(selection)), writers_(std::move(writers)), most_(most) {}

    // Any message. True when it was a record that is wanted. Throws what the writers throw.
    bool Take(const vcihost::Bytes& bytes);

    // True once the limit is reached; nothing more is taken then.
    bool IsFull() const { return most_ != 0 && totals_.Records() >= most_; }

    void Flush(); // of all writers
    void Idle();

    // Behind the last record. Each writer is finished, also when one before it fails; then the
    // first failure is thrown.
    void Finish();

    const RecordTotals& Totals() const { return totals_; }

  private:
    bool TakeOfRecordGroup(const vcihost::Message& message);
    template <typename Record>
    bool Take(const std::optional<Record>& record, uint64_t RecordTotals::*counter);
    bool CountUnreadable();

    vcihost::RecordSelection selection_;
    Writers writers_;
    uint64_t most_;
    RecordTotals totals_;
    vcihost::RecordCounts counts_{};
};
