#include "modules/LinSchedule/LinSlot.h"

#include <algorithm>

namespace {

using std::chrono::microseconds;

constexpr uint32_t kHeaderAndChecksumBits = 44; // break, sync and pid, and the checksum behind
constexpr uint32_t kBitsPerByte = 10;
constexpr uint32_t kMicrosecondsPerSecond = 1'000'000;
constexpr uint32_t kSpareBits = 15; // what a responder may take for its pauses

// Microseconds. They fit the board's kernel and clock; another machine may need others.
constexpr double kCaughtUp = 400.0;   // the usual delay of waking up and writing, and up to this
constexpr double kAccident = 10000.0; // from this on it is no delay of the schedule's own

// Every cycle is planned this much short, which makes up for the waking and the writing; this too
// was found for that board.
constexpr microseconds kCycleBias{-14};

double Microseconds(LinCycle::Clock::time_point time) {
    return std::chrono::duration<double, std::micro>(time.time_since_epoch()).count();
}

} // namespace

uint32_t LinSlotLength(int baudrate, int dlc, uint32_t delay_vba) {
    if (baudrate == 0) {
        return delay_vba;
    }
    const uint32_t bits = static_cast<uint32_t>(dlc) * kBitsPerByte + kHeaderAndChecksumBits;
    const uint32_t least = (bits * kMicrosecondsPerSecond + kSpareBits * kMicrosecondsPerSecond) /
                           static_cast<uint32_t>(baudrate);
    return std::max(delay_vba, least);
}

int64_t LinKeptDelay(double planned_us, double start_us) {
    const double late = start_us - planned_us;
    if (planned_us == 0 || !(late > kCaughtUp && late < kAccident)) {
        return 0;
    }
    return static_cast<int64_t>(late);
}

void LinCycle::Begin(Clock::time_point start) {
    start_ = start;
    accumulated_ = kCycleBias;
}

LinCycle::Clock::time_point LinCycle::NextEnd(Clock::time_point start, microseconds duration) {
    const microseconds bais(LinKeptDelay(slot_end_time_, Microseconds(start))); // late, and kept
    accumulated_ += duration + bais;
    const Clock::time_point slot_end = start_ + accumulated_;
    slot_end_time_ = Microseconds(slot_end);
    return slot_end;
}
