#include "vcihost/Describe.h"

#include "common/GlobalEnums.h"
#include "vcihost/NegativeResponse.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

// A group that is to be told in words adds its table here.
constexpr std::span<const ServiceWords> (*kTables[])() = {
    DeviceGroupWords, LinGroupWords, RecordGroupWords, SyncGroupWords,
    ReplayGroupWords, IoGroupWords,  CanGroupWords,    ErrorGroupWords};

const ServiceWords* FindService(uint8_t gid, uint8_t sid) {
    for (const auto table : kTables) {
        for (const ServiceWords& service : table()) {
            if (service.gid == gid && service.sid == sid) {
                return &service;
            }
        }
    }
    return nullptr;
}

std::string ByteCount(size_t count) {
    return count == 1 ? "1 byte" : fmt::format("{} bytes", count);
}

Description Malformed(const std::string& fault) {
    Description description;
    description.kind = "malformed";
    description.text = "malformed: " + fault;
    return description;
}

// `read`: the direction's reader of a service, null where it has none.
void DescribeService(Description& description, uint8_t gid, uint8_t sid,
                     std::span<const uint8_t> payload, const ServiceWords* service,
                     ServiceWords::Reader read) {
    description.fields = {{"gid", uint64_t{gid}}, {"sid", uint64_t{sid}}};
    if (const auto words = read != nullptr ? read(payload) : std::nullopt) {
        description.text = words->text;
        description.fields.insert(description.fields.end(), words->fields.begin(),
                                  words->fields.end());
        return;
    }
    if (service != nullptr) {
        description.text = fmt::format("{} with an unknown payload of {}", service->name,
                                       ByteCount(payload.size()));
    } else {
        description.text = fmt::format("group {} service {}", gid, sid);
        if (!payload.empty()) {
            description.text += ", payload of " + ByteCount(payload.size());
        }
    }
    description.fields.push_back({"payload", ToHex(payload)});
}

} // namespace

Description DescribeRequest(std::span<const uint8_t> frame) {
    std::string fault;
    const auto request = ParseRequest(frame, &fault);
    if (!request) {
        return Malformed(fault);
    }
    const ServiceWords* const service = FindService(request->gid, request->sid);
    Description description;
    description.kind = "request";
    DescribeService(description, request->gid, request->sid, request->payload, service,
                    service != nullptr ? service->request : nullptr);
    if (request->handle != 0) {
        description.text += fmt::format(", handle 0x{:08x}", request->handle);
    }
    description.fields.push_back({"handle", uint64_t{request->handle}});
    return description;
}

Description DescribeMessage(std::span<const uint8_t> bytes) {
    std::string fault;
    const auto message = ParseMessage(bytes, &fault);
    if (!message) {
        return Malformed(fault);
    }
    Description description;
    if (const auto refusal = NegativeResponse::From(*message)) {
        const char* const name = NegtiveErrorCodeName(refusal->code);
        description.kind = "refusal";
        description.text = "refused: " + refusal->Text();
        description.fields = {
            {"gid", uint64_t{message->gid}},         {"sid", uint64_t{message->sid}},
            {"code", uint64_t{refusal->code}},       {"code_name", name != nullptr ? name : ""},
            {"request_gid", uint64_t{refusal->gid}}, {"request_sid", uint64_t{refusal->sid}},
            {"handle", uint64_t{refusal->handle}}};
        return description;
    }
    const ServiceWords* const service = FindService(message->gid, message->sid);
    const bool upload = message->gid == ERR_INFO_SERVICE_GID || (service && service->upload);
    description.kind = upload ? "upload" : "answer";
    DescribeService(description, message->gid, message->sid, message->payload, service,
                    service != nullptr ? service->message : nullptr);
    return description;
}

} // namespace vcihost
