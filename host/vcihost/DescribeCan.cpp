#include "common/GlobalEnums.h"
#include "vcihost/CanRequest.h"
#include "vcihost/DescribeParts.h"
#include "vcihost/Notation.h"

#include <fmt/format.h>

// Groups 21 and 22 in words.
namespace vcihost {

namespace {

std::string PhaseText(const BitTiming& timing) {
    std::string text = fmt::format("brp {} sjw {} seg1 {} seg2 {}", timing.brp, timing.sjw,
                                   timing.seg1, timing.seg2);
    if (timing.brp != 0) {
        text += fmt::format(" ({} bit/s, sample point {:.1f} %)", BitRateText(timing.Rate()),
                            timing.SamplePoint() * 100);
    }
    return text;
}

BitTiming ReadPhase(WireReader& reader) {
    BitTiming timing;
    timing.brp = reader.U8();
    timing.sjw = reader.U8();
    timing.seg1 = reader.U8();
    timing.seg2 = reader.U8();
    return timing;
}

std::optional<Words> Timing(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint8_t code = reader.U8();
    const uint8_t type = reader.U8();
    const uint8_t listen = reader.U8();
    const BitTiming nominal = ReadPhase(reader);
    Words words{fmt::format("can timing: {}, {}, {}, nominal {}", CanCodeText(code),
                            Choice(type, "classic", "CAN FD"),
                            Choice(listen, "normal", "listen-only"), PhaseText(nominal)),
                {{"channel", uint64_t{code}},
                 {"type", uint64_t{type}},
                 {"listen", uint64_t{listen}},
                 {"nominal", PhaseText(nominal)}}};
    // The data phase of a classic channel is not looked at, and may be left out.
    if (type == 1 || reader.Left() > 0) {
        const BitTiming data = ReadPhase(reader);
        if (type == 1) {
            words.text += ", data " + PhaseText(data);
            words.fields.push_back({"data", PhaseText(data)});
        }
    }
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    return words;
}

std::optional<Words> SecondPoint(std::span<const uint8_t> payload) {
    if (payload.size() != 3) {
        return std::nullopt;
    }
    return Words{
        fmt::format("second sample point: {}, {}", CanCodeText(payload[0]),
                    Choice(payload[1], "off", fmt::format("offset {}", payload[2]).c_str())),
        {{"channel", uint64_t{payload[0]}},
         {"status", uint64_t{payload[1]}},
         {"offset", uint64_t{payload[2]}}}};
}

std::optional<Words> Termination(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    static constexpr const char* kSettings[] = {"no resistor", "add the first resistor",
                                                "add the second resistor"};
    const uint8_t setting = payload[1];
    return Words{fmt::format("termination: {}, {}", CanCodeText(payload[0]),
                             setting <= kMostTermination
                                 ? kSettings[setting]
                                 : fmt::format("{} (no setting)", setting).c_str()),
                 {{"channel", uint64_t{payload[0]}}, {"termination", uint64_t{setting}}}};
}

std::optional<Words> Status(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    return Words{fmt::format("can status: {}, {}", CanCodeText(payload[0]),
                             Choice(payload[1], "close", "open")),
                 {{"channel", uint64_t{payload[0]}}, {"open", uint64_t{payload[1]}}}};
}

std::optional<Words> Mode(std::span<const uint8_t> payload) {
    if (payload.size() != 2) {
        return std::nullopt;
    }
    return Words{fmt::format("controller mode: {}, {}", CanCodeText(payload[0]),
                             Choice(payload[1], "normal", "listen-only")),
                 {{"channel", uint64_t{payload[0]}}, {"listen", uint64_t{payload[1]}}}};
}

// Head and entries of a request of several frames, which must fill the payload.
std::optional<Words> Entries(const char* name, std::span<const uint8_t> payload, bool periodic) {
    WireReader reader(payload);
    const uint8_t code = reader.U8();
    const uint8_t count = reader.U8();
    std::string frames;
    for (unsigned i = 0; i < count && reader.ok(); ++i) {
        uint16_t periodMs = 0;
        const CanFrame frame = ReadCanFrame(reader, periodic ? &periodMs : nullptr);
        frames += i > 0 ? ", " : "";
        if (!periodic) {
            frames += CanFrameText(frame);
        } else if (periodMs == 0) {
            frames += "stop " + CanIdText(frame);
        } else {
            frames += fmt::format("{} every {} ms", CanFrameText(frame), periodMs);
        }
    }
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    return Words{
        fmt::format("{}: {}, {}", name, CanCodeText(code), count == 0 ? "nothing" : frames.c_str()),
        {{"channel", uint64_t{code}}, {"count", uint64_t{count}}, {"frames", frames}}};
}

std::optional<Words> Periodic(std::span<const uint8_t> payload) {
    return Entries("periodic send", payload, true);
}

std::optional<Words> Burst(std::span<const uint8_t> payload) {
    return Entries("burst send", payload, false);
}

std::optional<Words> Silent(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint8_t code = reader.U8();
    const std::string frame = CanFrameText(ReadCanFrame(reader));
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    return Words{fmt::format("send without answer: {}, {}", CanCodeText(code), frame),
                 {{"channel", uint64_t{code}}, {"frames", frame}}};
}

// The device has not looked at the entries yet.
std::optional<Words> AcceptedAnswer(std::span<const uint8_t> payload) {
    return TimeWords("accepted, ", payload);
}

constexpr uint8_t kSetUp = NET_CONFIG_SERVICE_GID;
constexpr uint8_t kSend = SEND_NET_FRAME_SERVICE_GID;
constexpr ServiceWords kServices[] = {
    {kSetUp, kCanTimingSid, false, "can timing", Timing, DoneWords},
    {kSetUp, kCanSecondPointSid, false, "second sample point", SecondPoint, DoneWords},
    {kSetUp, kCanTerminationSid, false, "termination", Termination, DoneWords},
    {kSetUp, kCanStatusSid, false, "can status", Status, DoneAtWords},
    {kSetUp, kCanModeSid, false, "controller mode", Mode, DoneWords},
    {kSend, kCanPeriodicSid, false, "periodic send", Periodic, AcceptedAnswer},
    {kSend, kCanBurstSid, false, "burst send", Burst, DoneAtWords},
    {kSend, kCanSilentSid, false, "send without answer", Silent, nullptr},
};

} // namespace

std::span<const ServiceWords> CanGroupWords() {
    return kServices;
}

} // namespace vcihost
