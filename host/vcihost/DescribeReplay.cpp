#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/CanRequest.h"
#include "vcihost/DescribeParts.h"
#include "vcihost/ReplayRequest.h"

#include <fmt/format.h>

// Group 18 in words.
namespace vcihost {

namespace {

constexpr uint8_t kGid = CAN_REPLAY_SERVICE_GID;
constexpr unsigned kMostShown = 8; // frames of a batch

constexpr const char* kFinish = "replay finish: no more data comes";
constexpr const char* kCancel = "replay cancel";
constexpr const char* kPause = "replay pause";
constexpr const char* kContinue = "replay continue";
constexpr const char* kReady = "ready for replay data";

std::optional<Words> Data(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint16_t count = reader.U16();
    std::string frames;
    for (unsigned i = 0; i < count && reader.ok(); ++i) {
        const uint8_t channel = reader.U8();
        const uint32_t interval = reader.U32();
        const CanFrame frame = ReadCanFrame(reader);
        if (i < kMostShown) {
            frames += fmt::format("{}{} {} after {} us", i > 0 ? ", " : "", CanChannelText(channel),
                                  CanFrameText(frame), interval);
        }
    }
    if (!reader.ok() || reader.Left() > 0) {
        return std::nullopt;
    }
    if (count > kMostShown) {
        frames += fmt::format(" and {} more", count - kMostShown);
    }
    return Words{fmt::format("replay data: {}", count == 0 ? "nothing" : frames.c_str()),
                 {{"count", uint64_t{count}}, {"frames", frames}}};
}

std::optional<Words> End(std::span<const uint8_t> payload) {
    if (!IsReplayEnd({kGid, kReplayEndSid, {}, payload, {}})) {
        return std::nullopt;
    }
    return Words{"the replay has ended", {}};
}

constexpr ServiceWords kServices[] = {
    {kGid, kReplayDataSid, false, "replay data", Data, nullptr},
    {kGid, kReplayReadySid, true, "ready for replay data", nullptr, PlainWords<kReady>},
    {kGid, kReplayFinishSid, false, "replay finish", PlainWords<kFinish>, DoneWords},
    {kGid, kReplayCancelSid, false, "replay cancel", PlainWords<kCancel>, DoneWords},
    {kGid, kReplayPauseSid, false, "replay pause", PlainWords<kPause>, DoneWords},
    {kGid, kReplayContinueSid, false, "replay continue", PlainWords<kContinue>, DoneWords},
    {kGid, kReplayEndSid, true, "replay end", nullptr, End},
};

} // namespace

std::span<const ServiceWords> ReplayGroupWords() {
    return kServices;
}

} // namespace vcihost
