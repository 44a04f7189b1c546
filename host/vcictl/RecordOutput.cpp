#include "vcictl/RecordOutput.h"

#include "vcihost/CandumpLog.h"

#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr size_t kLongText = 64UL * 1024;

nlohmann::ordered_json Head(const char* type, uint64_t device, uint64_t wall, uint8_t channel,
                            bool received) {
    return {{"type", type},
            {"device_ns", device},
            {"wall_ns", wall},
            {"channel", vcihost::CanChannelName(channel)},
            {"direction", received ? "rx" : "tx"}};
}

std::string Json(const vcihost::CanFrameRecord& record, uint64_t wall) {
    auto line = Head("frame", record.time, wall, record.channel, record.received);
    line["id"] = record.id;
    line["extended"] = record.extended;
    line["remote"] = record.remote;
    line["fd"] = record.fd;
    line["brs"] = record.brs;
    line["esi"] = record.esi;
    line["dlc"] = record.dlc;
    line["data"] = vcihost::ToHex(record.data);
    return line.dump();
}

std::string Json(const vcihost::CanErrorRecord& record, uint64_t wall) {
    auto line = Head("error", record.time, wall, record.channel, record.received);
    line["code"] = record.code;
    line["bit"] = record.bit;
    line["position"] = record.position;
    line["id"] = record.id;
    line["extended"] = record.extended;
    line["frame_type"] = record.frameType;
    line["protocol"] = record.protocol;
    line["esi"] = record.esi;
    line["dlc"] = record.dlc;
    line["data"] = vcihost::ToHex(record.data);
    return line.dump();
}

} // namespace

void RecordOutput::Write(const vcihost::CanFrameRecord& record) {
    Add(record);
}

void RecordOutput::Write(const vcihost::CanErrorRecord& record) {
    Add(record);
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
        text_ += Json(record, wall);
        text_ += '\n';
        break;
    }
    FlushWhenLong();
}

void RecordOutput::Lost(uint64_t count) {
    if (style_ == RecordStyle::View) {
        text_ += fmt::format(" lost: {}\n", count);
    } else if (style_ == RecordStyle::Json) {
        text_ += nlohmann::ordered_json{{"type", "lost"}, {"count", count}}.dump() + '\n';
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

void RecordOutput::Finish(
    const std::array<vcihost::ChannelCounts, vcihost::kCanChannels>& /*counts*/) {
    Flush();
}
