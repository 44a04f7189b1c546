#include "vcihost/ReplayPlan.h"

#include "vcihost/Notation.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vcihost {

namespace {

using Channel = std::optional<uint8_t>;

constexpr uint64_t kNsPerUs = 1000;

// By the index of the interface.
std::vector<Channel> ChannelsOf(const Trace& trace, const ReplayOptions& options) {
    std::vector<Channel> channels(trace.interfaces.size());
    for (const auto& [interface, channel] : options.outputs) {
        const auto& names = trace.interfaces;
        const auto found = std::find(names.begin(), names.end(), interface);
        if (found == names.end()) {
            throw NotationError(fmt::format("{}: no frame of '{}'; it has {}", trace.path,
                                            interface, fmt::join(names, ", ")));
        }
        channels[static_cast<size_t>(found - names.begin())] = channel;
    }
    for (uint8_t channel = 0; options.outputs.empty() && channel < kCanChannels; ++channel) {
        for (size_t i = 0; i < channels.size(); ++i) {
            if (trace.interfaces[i] == CanChannelName(channel)) {
                channels[i] = channel;
            }
        }
    }
    return channels;
}

class Planner {
  public:
    Planner(ReplayPlan& plan, const ReplayOptions& options) : plan_(plan), options_(options) {}

    // Of a frame that the trace has at this time, in nanoseconds.
    uint64_t Interval(uint64_t time) {
        const uint64_t before = std::exchange(last_, time);
        if (std::exchange(first_, false)) {
            return 0;
        }
        if (options_.ignoreTimes) {
            return Gap();
        }
        if (time < before) {
            ++plan_.backward;
            return Gap();
        }
        // Of times in whole microseconds, so that what is cut off does not add up.
        const uint64_t interval = time / kNsPerUs - before / kNsPerUs;
        const auto longest = static_cast<uint64_t>(options_.skip.count());
        if (longest > 0 && interval > longest) {
            ++plan_.skipped;
            plan_.skippedTime += interval;
            return Gap();
        }
        return std::max(interval, Gap());
    }

  private:
    uint64_t Gap() const { return static_cast<uint64_t>(options_.gap.count()); }

    ReplayPlan& plan_;
    const ReplayOptions& options_;
    bool first_ = true;
    uint64_t last_ = 0;
};

} // namespace

ReplayPlan ReplayPlan::Make(Trace& trace, const ReplayOptions& options) {
    ReplayPlan plan;
    Planner planner(plan, options);
    const auto channels = ChannelsOf(trace, options);
    for (TraceFrame& entry : trace.frames) {
        const Channel channel = channels[entry.interface];
        if (!channel && options.outputs.empty()) {
            const std::string& name = trace.interfaces[entry.interface];
            throw NotationError(fmt::format("{}: the device has no channel '{}'; say where its "
                                            "frames go: can0={}",
                                            trace.Place(entry), name, name));
        }
        if (!channel) {
            ++plan.unmapped;
            continue;
        }
        const uint64_t interval = planner.Interval(entry.time);
        if (interval > kLongestReplayInterval) {
            throw NotationError(fmt::format("{}: {} behind the frame before; the device waits at "
                                            "most {}, and -s skips longer intervals",
                                            trace.Place(entry), SecondsText(interval * kNsPerUs),
                                            SecondsText(kLongestReplayInterval * kNsPerUs)));
        }
        plan.duration += interval;
        plan.frames.push_back({*channel, static_cast<uint32_t>(interval), std::move(entry.frame)});
        if (std::find(plan.channels.begin(), plan.channels.end(), *channel) ==
            plan.channels.end()) {
            plan.channels.push_back(*channel);
        }
    }
    trace.frames.clear();
    trace.frames.shrink_to_fit();
    std::sort(plan.channels.begin(), plan.channels.end());
    if (plan.frames.empty()) {
        throw NotationError(trace.path + ": no frame that can be sent");
    }
    return plan;
}

void AddReplayOutput(ReplayOptions& options, const std::string& text) {
    const size_t sign = text.find('=');
    if (sign == std::string::npos || sign + 1 == text.size()) {
        throw NotationError(
            fmt::format("'{}' is not OUT=IN; can2=can0 plays frames of can0 on can2", text));
    }
    const std::string interface = text.substr(sign + 1);
    if (!options.outputs.emplace(interface, ParseCanChannel(text.substr(0, sign))).second) {
        throw NotationError(fmt::format("'{}': {} has a channel already", text, interface));
    }
}

} // namespace vcihost
