#pragma once

#include "vcihost/Waiter.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace vcihost {

// How fast the device's clock runs against the host's, from requests for the time. A plain value.
class ClockRate {
  public:
    struct Result {
        double ppm;         // positive: the device's clock is the faster one
        double uncertainty; // ppm, at most: where in its round trip each stamp was taken is unknown
        double seconds;     // host time from the first sample to the last
    };

    // One answer: device time in nanoseconds, host time just before the request and just behind the
    // answer.
    void Add(uint64_t deviceTime, Deadline sent, Deadline received);

    size_t Count() const { return samples_.size(); }

    // The straight line through the samples; nothing before two samples at different times.
    std::optional<Result> Measure() const;

  private:
    struct Sample {
        double host; // seconds since the first sample, middle of the round trip
        double device;
        double halfTrip;
    };

    std::vector<Sample> samples_;
    Deadline firstHost_;
    uint64_t firstDevice_ = 0;
};

} // namespace vcihost
