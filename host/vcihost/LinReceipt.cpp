#include "vcihost/LinReceipt.h"

#include <algorithm>
#include <cstdlib>

namespace vcihost {

namespace {

constexpr int64_t kMicrosecond = 1000; // nanoseconds

// Two frames of one schedule are not farther apart; what is, has a damaged time.
constexpr int64_t kDay = 86'400'000'000'000;

// A place in the schedule, and a frame that was seen there.
struct Place {
    int64_t cycle = 0;
    size_t slot = 0;
    uint64_t start = 0;
};

// Device times may be any bytes, so they are never added to, only taken apart.
int64_t Since(uint64_t time, uint64_t before) {
    return static_cast<int64_t>(time - before);
}

class Schedule {
  public:
    Schedule(std::span<const LinSlot> table, uint32_t bitrate) : table_(table) {
        for (const LinSlot& slot : table) {
            starts_.push_back(cycle_);
            lengths_.push_back(int64_t{LinSlotUs(slot, bitrate)} * kMicrosecond);
            cycle_ += lengths_.back();
        }
    }

    size_t Size() const { return table_.size(); }
    int64_t Cycle() const { return cycle_; }
    int64_t Start(size_t slot) const { return starts_[slot]; }

    // From one place to another one, as planned.
    int64_t Between(const Place& from, const Place& to) const {
        return (to.cycle - from.cycle) * cycle_ + starts_[to.slot] - starts_[from.slot];
    }

    // Entries from the first of all up to this place.
    uint64_t Number(const Place& place) const {
        return static_cast<uint64_t>(place.cycle) * Size() + place.slot;
    }

    std::optional<Place> First(const LinSeen& frame) const {
        const auto found = std::find_if(table_.begin(), table_.end(),
                                        [&](const LinSlot& slot) { return slot.id == frame.id; });
        if (found == table_.end()) {
            return std::nullopt;
        }
        return Place{0, static_cast<size_t>(found - table_.begin()), frame.start};
    }

    // The place of the frame's identifier in the cycle that follows `last`; of several the one
    // whose time is nearest to the frame's.
    std::optional<Place> Next(const Place& last, const LinSeen& frame) const {
        const int64_t gap = Since(frame.start, last.start);
        if (gap < 0 || gap > kDay) {
            return std::nullopt;
        }
        std::optional<Place> best;
        for (size_t step = 1; step <= Size(); ++step) {
            const size_t slot = (last.slot + step) % Size();
            const Place place{last.cycle + (slot <= last.slot ? 1 : 0), slot, frame.start};
            if (table_[slot].id == frame.id &&
                (!best ||
                 std::abs(Between(last, place) - gap) < std::abs(Between(last, *best) - gap))) {
                best = place;
            }
        }
        return best;
    }

    // How many slots behind that of `last` were over at this time.
    uint64_t OverAfter(const Place& last, uint64_t time) const {
        const int64_t gap = Since(time, last.start);
        if (gap < 0 || gap > kDay) {
            return 0;
        }
        const auto whole = static_cast<uint64_t>(gap / cycle_) * Size();
        int64_t rest = gap % cycle_;
        uint64_t more = 0;
        for (size_t slot = last.slot; rest >= lengths_[slot]; slot = (slot + 1) % Size()) {
            rest -= lengths_[slot];
            ++more;
        }
        return whole + more > 0 ? whole + more - 1 : 0; // its own slot is the first of them
    }

  private:
    std::span<const LinSlot> table_;
    std::vector<int64_t> starts_;
    std::vector<int64_t> lengths_;
    int64_t cycle_ = 0;
};

// What is collected of one entry.
struct Times {
    std::vector<int64_t> went;
    std::vector<int64_t> late;
};

// Of so many entries one behind the other, those that are this one.
uint64_t CountOf(size_t slot, uint64_t entries, size_t size) {
    return entries / size + (slot < entries % size ? 1 : 0);
}

} // namespace

std::optional<int64_t> LinSlotReceipt::Worst() const {
    if (!late.earliest) {
        return std::nullopt;
    }
    return std::max(std::abs(*late.earliest), std::abs(*late.latest));
}

LinReceipt LinReceipt::Make(std::span<const LinSlot> table, uint32_t bitrate,
                            std::span<const LinSeen> seen, uint64_t stopped) {
    const Schedule schedule(table, bitrate);
    LinReceipt receipt;
    receipt.planned = schedule.Cycle();
    receipt.slots.resize(table.size());
    std::vector<Times> times(table.size());
    std::vector<int64_t> cycles;
    std::optional<Place> last;
    Place mark;
    for (const LinSeen& frame : seen) {
        const auto place = last ? schedule.Next(*last, frame) : schedule.First(frame);
        if (!place) {
            ++receipt.others;
            continue;
        }
        if (last) {
            times[place->slot].late.push_back(Since(place->start, mark.start) -
                                              schedule.Between(mark, *place));
        }
        if (!last || place->cycle != mark.cycle) {
            if (last && place->cycle == mark.cycle + 1 && place->slot == mark.slot) {
                cycles.push_back(Since(place->start, mark.start));
            }
            mark = *place;
        }
        times[place->slot].went.push_back(Since(place->start, mark.start) +
                                          schedule.Start(mark.slot));
        LinSlotReceipt& slot = receipt.slots[place->slot];
        ++slot.seen;
        slot.failed += frame.failed ? 1 : 0;
        last = place;
    }
    receipt.measured = Median(std::move(cycles));
    const uint64_t due = last ? schedule.Number(*last) + 1 + schedule.OverAfter(*last, stopped) : 0;
    for (size_t i = 0; i < table.size(); ++i) {
        LinSlotReceipt& slot = receipt.slots[i];
        slot.at = schedule.Start(i);
        slot.went = Median(std::move(times[i].went));
        slot.due = CountOf(i, due, table.size());
        slot.lost = slot.due - slot.seen;
        slot.late = Spread::Of(std::move(times[i].late));
    }
    return receipt;
}

} // namespace vcihost
