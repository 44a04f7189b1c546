#pragma once

#include <chrono>
#include <cstdint>

// The arithmetic of schedule slots. The functions are pure, and safe from any thread.

// The length of a slot in microseconds at `baudrate` bit/s: `delay_vba`, which the host asked for,
// but at least the time of a frame with `dlc` data bytes (0 to 255) and 15 bits more. At a bit rate
// of 0 nothing is known, and the host's wish stands.
uint32_t LinSlotLength(int baudrate, int dlc, uint32_t delay_vba);

// How many microseconds later than planned a slot is to end that began at `start_us`, where the one
// before it was to end at `planned_us`: both on the steady clock, and 0 for a `planned_us` before
// which there was no slot. A start that is late by more than 400 us and less than 10 ms is kept, so
// that the slot has its full length; less is caught up, and so is more, which was an accident.
int64_t LinKeptDelay(double planned_us, double start_us);

// Plans where the slots of a schedule end, cycle by cycle. It looks at no clock itself. Bound to
// one thread.
class LinCycle {
  public:
    using Clock = std::chrono::steady_clock;

    // A cycle that begins at `start`. All its ends are counted from here, so that errors of waking
    // up do not add up in it; its first is planned 14 us short, and the others with it.
    void Begin(Clock::time_point start);

    // The end of the next slot of the cycle, which begins at `start`; see LinKeptDelay for one that
    // begins late, be it behind the last slot of the cycle before.
    Clock::time_point NextEnd(Clock::time_point start, std::chrono::microseconds duration);

  private:
    Clock::time_point start_;
    std::chrono::microseconds accumulated_{0}; // from start_ to the end of the slot in progress
    double slot_end_time_ = 0; // us on the steady clock, where the slot before was to end
};
