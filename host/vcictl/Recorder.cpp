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
    if (message->gid == DATA_RECORD_SERVICE_GID) {
        return TakeOfRecordGroup(*message);
    }
    if (message->gid == ERR_INFO_SERVICE_GID && message->sid == vcihost::kCanErrorRecordSid) {
        return Take(vcihost::CanErrorRecord::From(*message), &RecordTotals::errors);
    }
    return false;
}

bool Recorder::TakeOfRecordGroup(const vcihost::Message& message) {
    switch (message.sid) {
    case vcihost::kCanFrameRecordSid:
        return Take(vcihost::CanFrameRecord::From(message), &RecordTotals::frames);
    case vcihost::kLinFrameRecordSid: {
        const auto record = vcihost::LinFrameRecord::From(message);
        const bool error = record && record->HasError();
        return Take(record, error ? &RecordTotals::errors : &RecordTotals::frames);
    }
    case vcihost::kLinWakeupRecordSid:
        return Take(vcihost::LinWakeupRecord::From(message), &RecordTotals::wakeups);
    default: // an answer
        return false;
    }
}

template <typename Record>
bool Recorder::Take(const std::optional<Record>& record, uint64_t RecordTotals::*counter) {
    if (!record) {
        return CountUnreadable();
    }
    const auto channel = vcihost::RecordChannel::Of(*record);
    if (!selection_.Has(channel)) {
        return false; // an earlier host left this channel's record on
    }
    vcihost::ChannelCounts& counts = counts_[channel.Index()];
    ++counts.received;
    if (!selection_.Passes(*record)) {
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
