#pragma once

#include <cstdint>
#include <optional>
#include <utility>

// Bit timing of the device's CAN controllers. Pure functions, safe from any thread.
namespace vcihost {

constexpr uint32_t kCanClock = 40'000'000; // Hz, of all six channels

// One phase's bit timing, in the units of the request: a prescaler counted from 1 and segments in
// time quanta. The bit takes 1 + seg1 + seg2 quanta. A plain value.
struct BitTiming {
    uint8_t brp = 0;
    uint8_t sjw = 0;
    uint8_t seg1 = 0; // propagation segment and phase segment 1
    uint8_t seg2 = 0;

    uint32_t Quanta() const { return 1U + seg1 + seg2; }
    double Rate() const { return static_cast<double>(kCanClock) / (brp * Quanta()); }
    double SamplePoint() const { return static_cast<double>(1 + seg1) / Quanta(); }
    // The rate in whole bit/s, rounded down, with which the device plans; 0 for a prescaler of 0.
    int PlannedRate() const;

    bool operator==(const BitTiming&) const = default;
};

// What one phase takes: the register fields, or the one byte of the request where that is less.
struct BitTimingLimits {
    const char* name; // of the rate, in errors
    uint8_t brp;
    uint8_t sjw;
    uint8_t seg1;
    uint8_t seg2;
    double lowest; // bit/s
    double highest;
};
constexpr BitTimingLimits kNominalLimits{"bitrate", 255, 128, 255, 128, 1e3, 1e6};
constexpr BitTimingLimits kDataLimits{"dbitrate", 255, 16, 32, 16, 5e3, 8e6};

// A rate that is missed by more than this part is refused: nodes that differ by about as much do
// not understand each other.
constexpr double kMostRateError = 0.005;

// What is asked of one phase.
struct BitTimingWish {
    double rate = 0;                   // bit/s
    std::optional<double> samplePoint; // DefaultSamplePoint() otherwise
    std::optional<uint8_t> sjw;        // DefaultSjw() otherwise
};

// What CAN in Automation recommends: 87.5 % up to 500 kbit/s, 80 % up to 800 kbit/s, 75 % above;
// used in both phases.
double DefaultSamplePoint(double rate);

// As Linux chooses it: half of seg2, but not more than the second half of seg1; at least 1.
uint8_t DefaultSjw(const BitTiming& timing, const BitTimingLimits& limits);

// The timing with the smallest error of the rate, of these the one whose sample point is nearest to
// the wish, of these the one with the most quanta. Throws NotationError: for a rate that is missed
// by more than kMostRateError it names the nearest that can be had.
BitTiming ChooseBitTiming(const BitTimingWish& wish, const BitTimingLimits& limits);

// Both phases of CAN FD. Of timings that are equally good a pair with one prescaler is taken, so
// that the change of rate leaves the quanta as they are.
std::pair<BitTiming, BitTiming> ChooseFdBitTiming(const BitTimingWish& nominal,
                                                  const BitTimingWish& data);

// Throws NotationError for a timing that the phase does not take.
void CheckBitTiming(const BitTiming& timing, const BitTimingLimits& limits);

} // namespace vcihost
