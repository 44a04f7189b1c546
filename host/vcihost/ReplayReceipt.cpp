#include "vcihost/ReplayReceipt.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace vcihost {

namespace {

constexpr int64_t kNsPerUs = 1000;

// How much later than due `to` was, counted from `from`. Device times may be any bytes, so the
// difference is made where it may wrap.
int64_t Late(const ReplayReceipt::Sighting& from, const ReplayReceipt::Sighting& to) {
    const uint64_t due = static_cast<uint64_t>(to.at) - static_cast<uint64_t>(from.at);
    const auto late = static_cast<int64_t>(to.time - from.time - due);
    return std::max(late, -std::numeric_limits<int64_t>::max()); // so that it has a magnitude
}

} // namespace

void ReplayReceipt::Due(const ReplayFrame& frame, uint64_t at) {
    const CanFrame& can = frame.frame;
    const Key key{frame.channel, can.id, can.extended, can.remote, can.fd};
    Times& times = times_[key];
    ++times.due;
    ++due_;
    waiting_[frame.channel].push_back(
        {&times, static_cast<int64_t>(at) * kNsPerUs, key, can.brs, can.requested, can.data});
}

bool ReplayReceipt::Looks(const Waiting& waiting, const Key& key, const CanFrameRecord& record) {
    return waiting.key == key && waiting.brs == record.brs &&
           (record.remote ? waiting.requested == record.Length()
                          : std::equal(waiting.data.begin(), waiting.data.end(),
                                       record.data.begin(), record.data.end()));
}

void ReplayReceipt::Seen(const CanFrameRecord& record) {
    if (record.received) {
        return;
    }
    const Key key{record.channel, record.id, record.extended, record.remote, record.fd};
    auto& waiting = waiting_[record.channel];
    const auto found = std::find_if(waiting.begin(), waiting.end(),
                                    [&](const Waiting& each) { return Looks(each, key, record); });
    if (found == waiting.end()) {
        ++others_;
        return;
    }
    Take(*found, record.time);
    waiting.erase(waiting.begin(), found + 1);
}

void ReplayReceipt::Take(const Waiting& waiting, uint64_t time) {
    const Sighting sighting{waiting.at, time};
    first_ = first_.value_or(sighting);
    waiting.times->late.push_back(Late(*first_, sighting));
    const auto last = last_.find(waiting.key.channel);
    if (last != last_.end()) {
        waiting.times->spacing.push_back(std::abs(Late(last->second, sighting)));
    }
    last_[waiting.key.channel] = sighting;
    // Channels may overtake each other.
    latest_ = latest_ && latest_->at > sighting.at ? *latest_ : sighting;
    ++sent_;
}

void ReplayReceipt::Resumed() {
    ran_ = Ran().value_or(0);
    planned_ = Planned().value_or(0);
    first_.reset();
    latest_.reset();
    last_.clear();
}

std::optional<uint64_t> ReplayReceipt::Ran() const {
    if (sent_ < 2) {
        return std::nullopt;
    }
    return ran_ + (first_ ? latest_->time - first_->time : 0);
}

std::optional<uint64_t> ReplayReceipt::Planned() const {
    if (sent_ < 2) {
        return std::nullopt;
    }
    return planned_ + (first_ ? static_cast<uint64_t>(latest_->at - first_->at) : 0);
}

std::vector<ReplayFrameReceipt> ReplayReceipt::Frames() const {
    std::vector<ReplayFrameReceipt> frames;
    for (const auto& [key, times] : times_) {
        ReplayFrameReceipt& frame = frames.emplace_back();
        frame.channel = key.channel;
        frame.frame.id = key.id;
        frame.frame.extended = key.extended;
        frame.frame.remote = key.remote;
        frame.frame.fd = key.fd;
        frame.due = times.due;
        frame.sent = times.late.size();
        frame.late = Spread::Of(times.late);
        const Spread spacing = Spread::Of(times.spacing);
        frame.spacingP99 = spacing.p99;
        frame.spacingMax = spacing.latest;
    }
    return frames;
}

} // namespace vcihost
