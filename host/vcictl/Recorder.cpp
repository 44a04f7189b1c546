#include "vcictl/Recorder.h"

#include "common/GlobalEnums.h"

#include <exception>

bool Recorder::Take(const vcihost::Bytes& bytes) {
    if (IsFull()) {
        return false;
    }
    const auto message = vcihost::ParseMessage(bytes);
    if (!message) {
        return CountUnreadable();
    }
    if (message->gid == DATA_RECORD_SERVICE_GID && message->sid == vcihost::kCanFrameRecordSid) {
        return Take(vcihost::CanFrameRecord::From(*message), &RecordTotals::frames);
    }
    if (message->gid == ERR_INFO_SERVICE_GID && message->sid == vcihost::kCanErrorRecordSid) {
        return Take(vcihost::CanErrorRecord::From(*message), &RecordTotals::errors);
    }
    return false;
}

template <typename Record>
bool Recorder::Take(const std::optional<Record>& record, uint64_t RecordTotals::*counter) {
    if (!record) {
        return CountUnreadable();
    }
    if (!filters_.Has(record->channel)) {
        return false; // an earlier host left this channel's record on
    }
    vcihost::ChannelCounts& counts = counts_[record->channel];
    ++counts.received;
    if (!filters_.Passes(*record)) {
        ++totals_.filtered;
        return false;
    }
    ++counts.accepted;
    ++(totals_.*counter);
    for (const auto& writer : writers_) {
        writer->Write(*record);
    }
    return true;
}

bool Recorder::CountUnreadable() {
    ++totals_.unreadable;
    for (const auto& writer : writers_) {
        writer->Lost(1);
    }
    return false;
}

void Recorder::Flush() {
    for (const auto& writer : writers_) {
        writer->Flush();
    }
}

void Recorder::Idle() {
    for (const auto& writer : writers_) {
        writer->Idle();
    }
}

void Recorder::Finish() {
    std::exception_ptr failure;
    for (const auto& writer : writers_) {
        try {
            writer->Finish(counts_);
        } catch (...) {
            failure = failure ? failure : std::current_exception();
        }
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}
