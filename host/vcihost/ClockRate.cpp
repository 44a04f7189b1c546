#include "vcihost/ClockRate.h"

#include <cmath>

namespace vcihost {

namespace {

constexpr double kNanosecond = 1e-9;
constexpr double kPpm = 1e6;

double Seconds(Deadline::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

} // namespace

void ClockRate::Add(uint64_t deviceTime, Deadline sent, Deadline received) {
    const Deadline middle = sent + (received - sent) / 2;
    if (samples_.empty()) {
        firstHost_ = middle;
        firstDevice_ = deviceTime;
    }
    // The signed difference keeps a clock that was set back from looking like a leap ahead.
    const auto elapsed = static_cast<int64_t>(deviceTime - firstDevice_);
    samples_.push_back({Seconds(middle - firstHost_), static_cast<double>(elapsed) * kNanosecond,
                        Seconds(received - sent) / 2});
}

std::optional<ClockRate::Result> ClockRate::Measure() const {
    if (samples_.size() < 2) {
        return std::nullopt;
    }
    const auto count = static_cast<double>(samples_.size());
    double hostMean = 0;
    double deviceMean = 0;
    double halfTrip = 0;
    for (const Sample& sample : samples_) {
        hostMean += sample.host / count;
        deviceMean += sample.device / count;
        halfTrip = std::max(halfTrip, sample.halfTrip);
    }
    double squares = 0;
    double products = 0;
    double distances = 0;
    for (const Sample& sample : samples_) {
        const double host = sample.host - hostMean;
        squares += host * host;
        products += host * (sample.device - deviceMean);
        distances += std::abs(host);
    }
    if (squares <= 0) {
        return std::nullopt;
    }
    return Result{(products / squares - 1) * kPpm, halfTrip * distances / squares * kPpm,
                  samples_.back().host};
}

} // namespace vcihost
