#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/DescribeParts.h"
#include "vcihost/LinRequest.h"

#include <algorithm>

#include <fmt/format.h>

// Group 6 in words.
namespace vcihost {

namespace {

constexpr uint8_t kGid = LIN_MESSAGE_SERVICE_GID;

// The device does not mask the identifier that it makes a protected one of.
std::string IdText(uint8_t id) {
    return id <= kMostLinId ? LinIdText(id) : fmt::format("{:02X} (no identifier)", id);
}

std::string DataText(std::span<const uint8_t> data) {
    std::string text;
    for (const uint8_t byte : data) {
        text += fmt::format("{:02X}", byte);
    }
    return text;
}

// A channel and one byte more; the device takes longer requests as well.
struct Setting {
    uint8_t channel;
    uint8_t value;
};

std::optional<Setting> ReadSetting(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    return Setting{payload[0], payload[1]};
}

// Head and entries of a list, which must fill the payload.
template <typename Read>
std::optional<Words> List(const char* name, std::span<const uint8_t> payload, Read read) {
    WireReader reader(payload);
    const uint8_t channel = reader.U8();
    const uint8_t count = reader.U8();
    std::string entries;
    for (unsigned i = 0; i < count && reader.ok(); ++i) {
        entries += (i > 0 ? ", " : "") + read(reader);
    }
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    return Words{
        fmt::format("{}: {}, {}", name, LinChannelText(channel),
                    count == 0 ? "nothing" : entries.c_str()),
        {{"channel", uint64_t{channel}}, {"count", uint64_t{count}}, {"entries", entries}}};
}

std::optional<Words> Table(std::span<const uint8_t> payload) {
    return List("lin schedule table", payload, [](WireReader& reader) {
        const std::string id = IdText(reader.U8());
        const uint8_t length = reader.U8();
        return fmt::format("{} [{}] {} ms", id, length, reader.U16());
    });
}

std::optional<Words> Response(std::span<const uint8_t> payload) {
    return List("lin response", payload, [](WireReader& reader) {
        const std::string id = IdText(reader.U8());
        const uint8_t length = reader.U8();
        const auto data = reader.Bytes(kMostLinBytes);
        const auto told = data.first(std::min<size_t>(length, data.size()));
        return fmt::format("{}#{}{}", id, DataText(told),
                           length > kMostLinBytes ? fmt::format(" (length {})", length) : "");
    });
}

std::optional<Words> ResponseDelete(std::span<const uint8_t> payload) {
    return List("delete lin response", payload,
                [](WireReader& reader) { return IdText(reader.U8()); });
}

std::optional<Words> Role(std::span<const uint8_t> payload) {
    const auto setting = ReadSetting(payload);
    if (!setting) {
        return std::nullopt;
    }
    // Any value but 0 makes a commander.
    const char* const role = setting->value == 0 ? "responder" : "commander";
    return Words{fmt::format("lin role: {}, {}", LinChannelText(setting->channel), role),
                 {{"channel", uint64_t{setting->channel}}, {"role", uint64_t{setting->value}}}};
}

std::optional<Words> Clear(std::span<const uint8_t> payload) {
    const auto setting = ReadSetting(payload);
    if (!setting) {
        return std::nullopt;
    }
    static constexpr const char* kWhat[] = {"the table", "the responses",
                                            "the table and the responses"};
    const uint8_t what = setting->value;
    return Words{fmt::format("clear lin: {}, {}", LinChannelText(setting->channel),
                             what < std::size(kWhat) ? kWhat[what]
                                                     : fmt::format("{} (nothing)", what).c_str()),
                 {{"channel", uint64_t{setting->channel}}, {"what", uint64_t{what}}}};
}

std::optional<Words> Schedule(std::span<const uint8_t> payload) {
    const auto setting = ReadSetting(payload);
    if (!setting) {
        return std::nullopt;
    }
    return Words{fmt::format("lin schedule: {}, {}", LinChannelText(setting->channel),
                             Choice(setting->value, "stop", "run")),
                 {{"channel", uint64_t{setting->channel}}, {"run", uint64_t{setting->value}}}};
}

std::optional<Words> Send(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint8_t channel = reader.U8();
    const bool response = reader.U8() != 0;
    reader.Skip(1);
    const uint8_t length = reader.U8();
    const uint8_t sync = reader.U8();
    const uint8_t interByte = reader.U8();
    const uint8_t pid = reader.U8();
    const uint8_t breakLength = reader.U8();
    const uint8_t breakDelimiter = reader.U8();
    const auto data = reader.Bytes(kMostLinBytes);
    const auto spaces = reader.Bytes(kLinSpaces);
    const uint32_t headerRate = reader.U32();
    const uint32_t responseRate = reader.U32();
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    const std::string frame =
        fmt::format("{}#{}", LinIdText(LinIdOf(pid)),
                    response ? DataText(data.first(std::min<size_t>(length, data.size())))
                             : fmt::format("R{}", length));
    return Words{
        fmt::format("lin send: {}, {}, PID {:02X}, sync {:02X}, break {} + {}, inter-byte {}, "
                    "spaces {}, bit rates {} {}",
                    LinChannelText(channel), frame, pid, sync, breakLength, breakDelimiter,
                    interByte, ToSpacedHex(spaces), headerRate, responseRate),
        {{"channel", uint64_t{channel}},
         {"frame", frame},
         {"length", uint64_t{length}},
         {"pid", uint64_t{pid}},
         {"sync", uint64_t{sync}},
         {"break", uint64_t{breakLength}},
         {"break_delimiter", uint64_t{breakDelimiter}},
         {"inter_byte", uint64_t{interByte}},
         {"spaces", ToHex(spaces)},
         {"header_bitrate", uint64_t{headerRate}},
         {"response_bitrate", uint64_t{responseRate}}}};
}

std::optional<Words> Sleep(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint8_t channel = reader.U8();
    reader.Skip(1);
    const uint8_t value = reader.U8();
    const uint8_t repeats = reader.U8();
    const uint16_t interval = reader.U16();
    const uint16_t length = reader.U16();
    reader.Skip(1);
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    std::string text = fmt::format("lin sleep: {}, {}", LinChannelText(channel),
                                   Choice(value, "sleep", "wake up"));
    if (value == 1) {
        text += fmt::format(", {} times, interval {}, length {}", repeats, interval, length);
    }
    return Words{text,
                 {{"channel", uint64_t{channel}},
                  {"wake", uint64_t{value}},
                  {"repeats", uint64_t{repeats}},
                  {"interval", uint64_t{interval}},
                  {"length", uint64_t{length}}}};
}

std::optional<Words> Disturb(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint8_t channel = reader.U8();
    const uint8_t on = reader.U8();
    const bool oneId = reader.U8() != 0;
    const uint8_t id = reader.U8();
    const uint8_t type = reader.U8();
    const uint8_t length = reader.U8();
    const uint8_t offset = reader.U8();
    const uint8_t field = reader.U8();
    const bool counted = reader.U8() != 0;
    const uint16_t times = reader.U16();
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    return Words{fmt::format("lin disturb: {}, {}, {}, type {}, length {}, offset {}, field {}, {}",
                             LinChannelText(channel), on == 0 ? "off" : "on",
                             oneId ? IdText(id) : "all identifiers", type, length, offset, field,
                             counted ? fmt::format("{} times", times) : "without limit"),
                 {{"channel", uint64_t{channel}},
                  {"on", uint64_t{on}},
                  {"one_id", uint64_t{oneId}},
                  {"id", uint64_t{id}},
                  {"type", uint64_t{type}},
                  {"length", uint64_t{length}},
                  {"offset", uint64_t{offset}},
                  {"field", uint64_t{field}},
                  {"counted", uint64_t{counted}},
                  {"times", uint64_t{times}}}};
}

std::optional<Words> Channel(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint8_t channel = reader.U8();
    const uint8_t open = reader.U8();
    const uint16_t bitrate = reader.U16();
    const uint8_t version = reader.U8();
    const uint8_t supply = reader.U8();
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    std::string text =
        fmt::format("lin channel: {}, {}", LinChannelText(channel), Choice(open, "close", "open"));
    if (open == 1) {
        text += fmt::format(", {} bit/s, {}, {} supply", bitrate,
                            version < std::size(kLinVersions)
                                ? fmt::format("LIN {}", kLinVersions[version])
                                : fmt::format("version {} (none)", version),
                            Choice(supply, "internal", "external"));
    }
    return Words{text,
                 {{"channel", uint64_t{channel}},
                  {"open", uint64_t{open}},
                  {"bitrate", uint64_t{bitrate}},
                  {"version", uint64_t{version}},
                  {"supply", uint64_t{supply}}}};
}

constexpr ServiceWords kServices[] = {
    {kGid, kLinTableSid, false, "lin schedule table", Table, DoneWords},
    {kGid, kLinRoleSid, false, "lin role", Role, DoneWords},
    {kGid, kLinResponseSid, false, "lin response", Response, DoneWords},
    {kGid, kLinResponseDeleteSid, false, "delete lin response", ResponseDelete, DoneWords},
    {kGid, kLinClearSid, false, "clear lin", Clear, DoneWords},
    {kGid, kLinScheduleSid, false, "lin schedule", Schedule, DoneWords},
    {kGid, kLinSendSid, false, "lin send", Send, DoneWords},
    {kGid, kLinSleepSid, false, "lin sleep", Sleep, DoneWords},
    {kGid, kLinDisturbSid, false, "lin disturb", Disturb, DoneWords},
    {kGid, kLinChannelSid, false, "lin channel", Channel, DoneWords},
};

} // namespace

std::span<const ServiceWords> LinGroupWords() {
    return kServices;
}

} // namespace vcihost
