#include "vcictl/RecordOutput.h"

#include "vcictl/JsonText.h"
#include "vcictl/RecordJson.h"
#include "vcihost/CandumpLog.h"

#include <utility>

#include <fmt/format.h>

namespace {

constexpr size_t kLongText = 64UL * 1024;

} // namespace

void RecordOutput::Write(const vcihost::CanFrameRecord& record) {
    Add(record);
}

void RecordOutput::Write(const vcihost::CanErrorRecord& record) {
    Add(record);
}

void RecordOutput::Write(const vcihost::LinFrameRecord& record) {
    AddLin(record);
}

void RecordOutput::Write(const vcihost::LinWakeupRecord& record) {
    AddLin(record);
}

template <typename Record> void RecordOutput::Add(const Record& record) {
    const uint64_t wall = clock_.ToWall(record.time);
    switch (style_) {
    case RecordStyle::View:
        text_ += view_.Line(record, wall);
        text_ += '\n';
        break;
    case RecordStyle::Log:
        text_ += vcihost::CandumpLogLine(record, wall);
        break;
    case RecordStyle::Json:
        text_ += RecordJson(record, wall);
        text_ += '\n';
        break;
    }
    FlushWhenLong();
}

template <typename Record> void RecordOutput::AddLin(const Record& record) {
    const uint64_t wall = clock_.ToWall(record.start);
    text_ += style_ == RecordStyle::Json ? RecordJson(record, wall) : view_.Line(record, wall);
    text_ += '\n';
    FlushWhenLong();
}

void RecordOutput::Lost(uint64_t count) {
    if (style_ == RecordStyle::View) {
        text_ += fmt::format(" lost: {}\n", count);
    } else if (style_ == RecordStyle::Json) {
        text_ += JsonText({{"type", "lost"}, {"count", count}}) + '\n';
    } // a log has no place for it
    FlushWhenLong();
}

void RecordOutput::FlushWhenLong() {
    if (text_.size() > kLongText) {
        Flush();
    }
}

void RecordOutput::Flush() {
    if (!text_.empty()) {
        // Taken out first: what a failed write leaves is not to be written again.
        out_.Write(std::exchange(text_, {}));
    }
}

void RecordOutput::Finish(const vcihost::RecordCounts& /*counts*/) {
    Flush();
}
