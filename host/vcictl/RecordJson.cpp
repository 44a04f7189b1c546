#include "vcictl/RecordJson.h"

#include "vcictl/JsonText.h"

#include <nlohmann/json.hpp>

namespace {

nlohmann::ordered_json Head(const char* type, uint64_t device, uint64_t wall,
                            const std::string& channel) {
    return {{"type", type}, {"device_ns", device}, {"wall_ns", wall}, {"channel", channel}};
}

const char* Direction(bool received) {
    return received ? "rx" : "tx";
}

} // namespace

std::string RecordJson(const vcihost::CanFrameRecord& record, uint64_t wall) {
    auto line = Head("frame", record.time, wall, vcihost::CanChannelName(record.channel));
    line["direction"] = Direction(record.received);
    line["id"] = record.id;
    line["extended"] = record.extended;
    line["remote"] = record.remote;
    line["fd"] = record.fd;
    line["brs"] = record.brs;
    line["esi"] = record.esi;
    line["dlc"] = record.dlc;
    line["data"] = vcihost::ToHex(record.data);
    return JsonText(line);
}

std::string RecordJson(const vcihost::CanErrorRecord& record, uint64_t wall) {
    auto line = Head("error", record.time, wall, vcihost::CanChannelName(record.channel));
    line["direction"] = Direction(record.received);
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
    return JsonText(line);
}

std::string RecordJson(const vcihost::LinFrameRecord& record, uint64_t wall) {
    auto line = Head("lin_frame", record.start, wall, vcihost::LinChannelName(record.channel));
    line["direction"] = Direction(record.received);
    line["end_ns"] = record.end;
    line["id"] = vcihost::LinIdOf(record.pid);
    line["pid"] = record.pid;
    line["length"] = record.length;
    line["data"] = vcihost::ToHex(record.data);
    line["checksum"] = record.checksum;
    line["calculated"] = record.calculated;
    line["checksum_type"] = vcihost::LinChecksumTypeText(record.ChecksumType());
    line["error_code"] = record.errorCode;
    line["error"] = record.ErrorText();
    for (size_t i = 0; i < record.timings.size(); ++i) {
        line["timing"][vcihost::kLinTimings[i]] = record.timings[i];
    }
    return JsonText(line);
}

std::string RecordJson(const vcihost::LinWakeupRecord& record, uint64_t wall) {
    auto line = Head("lin_wakeup", record.start, wall, vcihost::LinChannelName(record.channel));
    line["end_ns"] = record.end;
    return JsonText(line);
}
