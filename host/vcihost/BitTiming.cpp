#include "vcihost/BitTiming.h"

#include "vcihost/Notation.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint32_t kFewestQuanta = 3; // synchronisation and one for each segment
constexpr double kWorst = std::numeric_limits<double>::infinity();

uint32_t MostQuanta(const BitTimingLimits& limits) {
    return 1U + limits.seg1 + limits.seg2;
}

double RateOf(uint32_t brp, uint32_t quanta) {
    return static_cast<double>(kCanClock) / (brp * quanta);
}

// Calls `use` with each prescaler and number of quanta, the smallest prescaler first.
template <typename Use> void ForEachRate(const BitTimingLimits& limits, Use use) {
    for (uint32_t brp = 1; brp <= limits.brp; ++brp) {
        for (uint32_t quanta = kFewestQuanta; quanta <= MostQuanta(limits); ++quanta) {
            use(brp, quanta);
        }
    }
}

// The segments of so many quanta that come nearest to the sample point; of two equally near ones
// the earlier.
BitTiming Divide(uint32_t brp, uint32_t quanta, double samplePoint, const BitTimingLimits& limits) {
    const uint32_t least = quanta - 1 > limits.seg1 ? quanta - 1 - limits.seg1 : 1;
    const uint32_t most = std::min<uint32_t>(limits.seg2, quanta - 2);
    const double ideal = quanta * (1 - samplePoint);
    const auto seg2 = static_cast<uint32_t>(
        std::clamp(std::floor(ideal + 0.5), static_cast<double>(least), static_cast<double>(most)));
    BitTiming timing;
    timing.brp = static_cast<uint8_t>(brp);
    timing.seg1 = static_cast<uint8_t>(quanta - 1 - seg2);
    timing.seg2 = static_cast<uint8_t>(seg2);
    return timing;
}

[[noreturn]] void FailRate(const BitTimingWish& wish, const BitTimingLimits& limits) {
    double below = 0;
    double above = kWorst;
    ForEachRate(limits, [&](uint32_t brp, uint32_t quanta) {
        const double rate = RateOf(brp, quanta);
        if (rate <= wish.rate && rate >= limits.lowest) {
            below = std::max(below, rate);
        }
        if (rate >= wish.rate && rate <= limits.highest) {
            above = std::min(above, rate);
        }
    });
    std::string near = below > 0 ? BitRateText(below) : "";
    if (above < kWorst) {
        near += (near.empty() ? "" : " and ") + BitRateText(above);
    }
    throw NotationError(fmt::format("{} {}: the 40 MHz clock does not reach it within {} %; the "
                                    "nearest are {} bit/s",
                                    limits.name, BitRateText(wish.rate), kMostRateError * 100,
                                    near));
}

void CheckRate(const BitTimingWish& wish, const BitTimingLimits& limits) {
    if (wish.rate < limits.lowest || wish.rate > limits.highest) {
        throw NotationError(fmt::format("{} {}: it goes from {} to {} bit/s", limits.name,
                                        BitRateText(wish.rate), BitRateText(limits.lowest),
                                        BitRateText(limits.highest)));
    }
}

// All timings that no other beats, the one with the most quanta first.
std::vector<BitTiming> BestTimings(const BitTimingWish& wish, const BitTimingLimits& limits) {
    CheckRate(wish, limits);
    const double samplePoint = wish.samplePoint.value_or(DefaultSamplePoint(wish.rate));
    double rateError = kWorst;
    double pointError = kWorst;
    std::vector<BitTiming> best;
    ForEachRate(limits, [&](uint32_t brp, uint32_t quanta) {
        const double thisRateError = std::abs(RateOf(brp, quanta) - wish.rate) / wish.rate;
        if (thisRateError > rateError) {
            return;
        }
        const BitTiming timing = Divide(brp, quanta, samplePoint, limits);
        const double thisPointError = std::abs(timing.SamplePoint() - samplePoint);
        if (thisRateError < rateError || thisPointError < pointError) {
            rateError = thisRateError;
            pointError = thisPointError;
            best.clear();
        }
        if (thisPointError <= pointError) {
            best.push_back(timing);
        }
    });
    if (rateError > kMostRateError) {
        FailRate(wish, limits);
    }
    return best;
}

BitTiming WithSjw(BitTiming timing, const BitTimingWish& wish, const BitTimingLimits& limits) {
    timing.sjw = wish.sjw.value_or(DefaultSjw(timing, limits));
    CheckBitTiming(timing, limits);
    return timing;
}

void CheckValue(const char* name, unsigned value, unsigned max, const BitTimingLimits& limits) {
    if (value < 1 || value > max) {
        throw NotationError(
            fmt::format("{}: {} {} is not from 1 to {}", limits.name, name, value, max));
    }
}

} // namespace

int BitTiming::PlannedRate() const {
    const uint32_t divisor = brp * Quanta();
    return divisor == 0 ? 0 : static_cast<int>(kCanClock / divisor);
}

double DefaultSamplePoint(double rate) {
    constexpr double kMedium = 500e3;
    constexpr double kFast = 800e3;
    if (rate > kFast) {
        return 0.75;
    }
    return rate > kMedium ? 0.8 : 0.875;
}

uint8_t DefaultSjw(const BitTiming& timing, const BitTimingLimits& limits) {
    const int phase1 = timing.seg1 - timing.seg1 / 2;
    const int sjw = std::min({phase1, timing.seg2 / 2, static_cast<int>(limits.sjw)});
    return static_cast<uint8_t>(std::max(1, sjw));
}

BitTiming ChooseBitTiming(const BitTimingWish& wish, const BitTimingLimits& limits) {
    return WithSjw(BestTimings(wish, limits).front(), wish, limits);
}

std::pair<BitTiming, BitTiming> ChooseFdBitTiming(const BitTimingWish& nominal,
                                                  const BitTimingWish& data) {
    const auto nominals = BestTimings(nominal, kNominalLimits);
    const auto datas = BestTimings(data, kDataLimits);
    std::pair chosen(nominals.front(), datas.front());
    for (const BitTiming& timing : nominals) {
        const auto same = std::find_if(datas.begin(), datas.end(), [&](const BitTiming& other) {
            return other.brp == timing.brp;
        });
        if (same != datas.end()) {
            chosen = {timing, *same};
            break;
        }
    }
    return {WithSjw(chosen.first, nominal, kNominalLimits),
            WithSjw(chosen.second, data, kDataLimits)};
}

void CheckBitTiming(const BitTiming& timing, const BitTimingLimits& limits) {
    CheckValue("brp", timing.brp, limits.brp, limits);
    CheckValue("sjw", timing.sjw, limits.sjw, limits);
    CheckValue("seg1", timing.seg1, limits.seg1, limits);
    CheckValue("seg2", timing.seg2, limits.seg2, limits);
    if (timing.sjw > timing.seg2) {
        throw NotationError(
            fmt::format("{}: sjw {} is longer than seg2 {}", limits.name, timing.sjw, timing.seg2));
    }
}

} // namespace vcihost
