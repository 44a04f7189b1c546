#include "net/planner/OffsetPlanner.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>

namespace net {

namespace {

constexpr uint32_t OFFSET_SEARCH_STEP_US = 20;
constexpr uint32_t kMostWindowUs = 200000;
constexpr size_t kSlots = kMostWindowUs / OFFSET_SEARCH_STEP_US;

// Nothing follows: any frame has room.
constexpr uint16_t kUnlimited = std::numeric_limits<uint16_t>::max();
static_assert(kSlots < kUnlimited);

// Candidates that are weighed at a time: few, because most searches end early.
constexpr size_t kCandidates = 256;

uint32_t StartOf(size_t slot) {
    return static_cast<uint32_t>(slot) * OFFSET_SEARCH_STEP_US;
}

// The room that a frame needs; a frame longer than the window fits only where nothing follows.
uint16_t StepsOf(uint32_t us) {
    const uint32_t steps = us / OFFSET_SEARCH_STEP_US + (us % OFFSET_SEARCH_STEP_US != 0 ? 1 : 0);
    return static_cast<uint16_t>(std::min<uint32_t>(steps, kUnlimited));
}

} // namespace

OffsetPlanner::Timeline::Timeline() : ends_(kSlots, 0), room_(kSlots, kUnlimited) {}

uint32_t OffsetPlanner::Timeline::EndAt(uint32_t start) const {
    return ends_[start / OFFSET_SEARCH_STEP_US];
}

// Brings the room up to date where it changes: from the interval before the slot to as far as the
// slot was or is busy. Of intervals that overlap, the one that starts last before a slot
// decides; the next start behind it bounds the room.
void OffsetPlanner::Timeline::Set(uint32_t start, uint32_t end) {
    const size_t slot = start / OFFSET_SEARCH_STEP_US;
    size_t before = slot;
    while (before > 0 && ends_[before - 1] == 0) {
        --before;
    }
    const uint32_t busyBefore = before > 0 ? ends_[before - 1] : 0;
    const uint32_t busyWas = ends_[slot] != 0 ? ends_[slot] : busyBefore;
    const uint32_t busyNow = end != 0 ? end : busyBefore;
    ends_[slot] = end;

    size_t behind = slot + 1;
    while (behind < kSlots && ends_[behind] == 0 && StartOf(behind) < std::max(busyWas, busyNow)) {
        ++behind;
    }
    const size_t next = StartBehind(behind);
    Fill(slot, behind, busyNow, next);
    Fill(before > 0 ? before - 1 : 0, slot, busyBefore, end != 0 ? slot : next);
}

// The slot of the first interval from `slot` on, which is outside the one before; kUnlimited for
// none.
size_t OffsetPlanner::Timeline::StartBehind(size_t slot) const {
    if (slot == kSlots) {
        return kUnlimited;
    }
    if (ends_[slot] != 0) {
        return slot;
    }
    return room_[slot] == kUnlimited ? kUnlimited : slot + room_[slot];
}

void OffsetPlanner::Timeline::Fill(size_t from, size_t to, uint32_t busyUntil, size_t next) {
    for (size_t i = from; i < to; ++i) {
        if (StartOf(i) < busyUntil) {
            room_[i] = 0;
        } else {
            room_[i] = next == kUnlimited ? kUnlimited : static_cast<uint16_t>(next - i);
        }
    }
}

void OffsetPlanner::Remove(uint32_t id) {
    if (const auto known = scheduled_tasks_.find(id); known != scheduled_tasks_.end()) {
        removeFromTimeline(known->second);
    }
}

void OffsetPlanner::Plan(std::vector<Task>& tasks, const std::function<uint64_t()>& now,
                         const std::function<void(const Task&)>& start) {
    // The hardest tasks choose first.
    std::sort(tasks.begin(), tasks.end(), [](const Task& a, const Task& b) {
        return a.period_us != b.period_us ? a.period_us < b.period_us
                                          : a.transmission_time_us > b.transmission_time_us;
    });
    ExtendWindow(tasks);
    for (Task& task : tasks) {
        findBestOffset(task);
        task.kernel_offset_us = KernelOffset(task, now());
        scheduled_tasks_[task.id] = task;
        addToTimeline(task);
        start(task);
    }
}

// The least common multiple of everything so far, bounded. It only grows, so that the first value
// beyond the bound decides; going on would leave 64 bits.
void OffsetPlanner::ExtendWindow(const std::vector<Task>& tasks) {
    for (const Task& task : tasks) {
        TIME_WINDOW_US = std::lcm<uint64_t, uint64_t>(TIME_WINDOW_US, task.period_us);
        if (TIME_WINDOW_US > kMostWindowUs) {
            TIME_WINDOW_US = kMostWindowUs;
            return;
        }
    }
    if (TIME_WINDOW_US < SAFE_WINDOW_US) {
        SAFE_WINDOW_US = 0; // for good: later batches with a longer window keep it
    }
}

// The first candidate with the fewest conflicts. From the end of the window on a candidate has no
// instance, and the first of them is free.
void OffsetPlanner::findBestOffset(Task& task) const {
    const size_t window = static_cast<size_t>(TIME_WINDOW_US) / OFFSET_SEARCH_STEP_US;
    const size_t period = task.period_us / OFFSET_SEARCH_STEP_US;
    const size_t end = period > window ? window + 1 : period;
    task.conflicts = std::numeric_limits<uint32_t>::max();
    std::array<uint16_t, kCandidates> conflicts;
    for (size_t first = 0; first < end && task.conflicts != 0; first += kCandidates) {
        const auto part = std::span(conflicts).first(std::min(kCandidates, end - first));
        CountConflicts(task, first, part);
        const auto best = std::min_element(part.begin(), part.end());
        if (*best < task.conflicts) {
            task.conflicts = *best;
            task.offset_us = StartOf(first + static_cast<size_t>(best - part.begin()));
        }
    }
}

// Of the candidates from `first` on. A candidate's instances lie one period apart, up to the end of
// the window; each counts at most one conflict. Instances are walked outside and candidates inside,
// so that the inner loop runs over neighbours.
void OffsetPlanner::CountConflicts(const Task& task, size_t first,
                                   std::span<uint16_t> conflicts) const {
    const size_t window = static_cast<size_t>(TIME_WINDOW_US) / OFFSET_SEARCH_STEP_US;
    const size_t period = task.period_us / OFFSET_SEARCH_STEP_US;
    const uint16_t needed = StepsOf(task.transmission_time_us);
    std::fill(conflicts.begin(), conflicts.end(), uint16_t{0});
    for (size_t instance = first; instance < window; instance += period) {
        const uint16_t* const room = timeline_.Room().data() + instance;
        const size_t count = std::min(conflicts.size(), window - instance);
        for (size_t i = 0; i < count; ++i) {
            conflicts[i] = static_cast<uint16_t>(conflicts[i] + (room[i] < needed ? 1 : 0));
        }
    }
}

void OffsetPlanner::addToTimeline(const Task& task) {
    const auto window = static_cast<uint32_t>(TIME_WINDOW_US);
    for (uint32_t start = task.offset_us; start < window; start += task.period_us) {
        timeline_.Set(start, std::min(start + task.transmission_time_us, window));
    }
}

void OffsetPlanner::removeFromTimeline(const Task& task) {
    const auto window = static_cast<uint32_t>(TIME_WINDOW_US);
    for (uint32_t start = task.offset_us; start < window; start += task.period_us) {
        if (timeline_.EndAt(start) == start + task.transmission_time_us) {
            timeline_.Set(start, 0);
        }
    }
}

uint64_t OffsetPlanner::KernelOffset(const Task& task, uint64_t current_time_us) {
    if (!has_base_time_) {
        global_base_time_us_ = current_time_us;
        has_base_time_ = true;
    }
    const uint64_t num_windows_passed = (current_time_us - global_base_time_us_) / TIME_WINDOW_US;
    const uint64_t current_window_start_us =
        global_base_time_us_ + TIME_WINDOW_US * num_windows_passed;
    const uint64_t current_window_end_us = current_window_start_us + TIME_WINDOW_US;

    uint64_t next_valid_start_us = current_window_start_us + task.offset_us;
    if (next_valid_start_us < current_time_us) {
        // A later instance of the same grid, at least the safe window ahead.
        const auto safenum = static_cast<uint8_t>(SAFE_WINDOW_US / task.period_us);
        const uint64_t num_periods_passed =
            (current_time_us - next_valid_start_us) / task.period_us + safenum + 1;
        next_valid_start_us += num_periods_passed * task.period_us;
    }
    if (next_valid_start_us > current_window_end_us - SAFE_WINDOW_US) {
        next_valid_start_us = current_window_end_us + task.offset_us;
    }
    uint64_t final_target_time_us = next_valid_start_us;
    if (final_target_time_us < current_time_us + SAFE_WINDOW_US) {
        final_target_time_us = current_window_start_us + 2 * TIME_WINDOW_US + task.offset_us;
    }
    return final_target_time_us - current_time_us;
}

} // namespace net
