#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"
#include "vcihost/CanChannel.h"
#include "vcihost/CanRequest.h"
#include "vcihost/Describe.h"
#include "vcihost/ReplayRequest.h"

#include <fmt/format.h>

// Group 18 in words.
namespace vcihost {

namespace {

constexpr uint8_t kGid = CAN_REPLAY_SERVICE_GID;
constexpr unsigned kMostShown = 8; // frames of a batch

template <const char* const& Name> std::optional<Words> Plain(std::span<const uint8_t> payload) {
    if (!payload.empty()) {
        return std::nullopt;
    }
    return Words{Name, {}};
}

constexpr const char* kFinish = "replay finish: no more data comes";
constexpr const char* kCancel = "replay cancel";
constexpr const char* kPause = "replay pause";
constexpr const char* kContinue = "replay continue";
constexpr const char* kReady = "ready for replay data";
constexpr const char* kDone = "done";

std::optional<Words> Data(std::span<const uint8_t> payload) {
    WireReader reader(payload);
    const uint16_t count = reader.U16();
    std::string frames;
    for (unsigned i = 0; i < count && reader.ok(); ++i) {
        const uint8_t channel = reader.U8();
        const uint32_t interval = reader.U32();
        const CanFrame frame = ReadCanFrame(reader);
        if (i < kMostShown) {
            frames += fmt::format("{}{} {} after {} us", i > 0 ? ", " : "",
                                  channel < kCanChannels
                                      ? CanChannelName(channel)
                                      : fmt::format("channel {} (no CAN channel)", channel),
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
    {kGid, kReplayReadySid, true, "ready for replay data", nullptr, Plain<kReady>},
    {kGid, kReplayFinishSid, false, "replay finish", Plain<kFinish>, Plain<kDone>},
    {kGid, kReplayCancelSid, false, "replay cancel", Plain<kCancel>, Plain<kDone>},
    {kGid, kReplayPauseSid, false, "replay pause", Plain<kPause>, Plain<kDone>},
    {kGid, kReplayContinueSid, false, "replay continue", Plain<kContinue>, Plain<kDone>},
    {kGid, kReplayEndSid, true, "replay end", nullptr, End},
};

} // namespace

std::span<const ServiceWords> ReplayGroupWords() {
    return kServices;
}

} // namespace vcihost
