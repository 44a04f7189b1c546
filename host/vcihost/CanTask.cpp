#include "vcihost/CanTask.h"

#include "vcihost/CanChannel.h"
#include "vcihost/Notation.h"

#include <set>
#include <tuple>

#include <fmt/format.h>

namespace vcihost {

CanTask ParseCanTask(std::string_view text, uint8_t channel) {
    constexpr int64_t kMillisecond = 1'000'000; // nanoseconds
    constexpr int64_t kMostPeriod = 65535;      // milliseconds; the request has two bytes
    const size_t at = text.find('@');
    if (at == std::string_view::npos) {
        throw NotationError(fmt::format("frame '{}': no period; write it as {}@10ms", text, text));
    }
    CanTask task;
    task.channel = channel;
    task.frame = ParseCanFrame(text.substr(0, at));
    const std::string_view period = text.substr(at + 1);
    const int64_t time = ParseDuration("period", period).count();
    if (time % kMillisecond != 0 || time < kMillisecond || time > kMostPeriod * kMillisecond) {
        throw NotationError(fmt::format(
            "period: '{}' cannot be sent; the device takes whole milliseconds from 1ms to 65535ms",
            period));
    }
    task.periodMs = static_cast<uint16_t>(time / kMillisecond);
    return task;
}

CanTask ParseChannelTask(std::string_view text, uint8_t channel) {
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) {
        return ParseCanTask(text, channel);
    }
    return ParseCanTask(text.substr(colon + 1), ParseCanChannel(text.substr(0, colon)));
}

void CheckDistinct(const std::vector<CanTask>& tasks) {
    std::set<std::tuple<uint8_t, bool, uint32_t>> seen;
    for (const CanTask& task : tasks) {
        if (!seen.emplace(task.channel, task.frame.extended, task.frame.id).second) {
            CanFrame plain;
            plain.id = task.frame.id;
            plain.extended = task.frame.extended;
            throw NotationError(
                fmt::format("identifier {} stands twice on {}; the device keeps one periodic frame "
                            "an identifier",
                            CanIdText(plain), CanChannelName(task.channel)));
        }
    }
}

} // namespace vcihost
