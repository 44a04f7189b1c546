#include "vcihost/PlanReceipt.h"

#include "vcihost/Percentile.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace vcihost {

namespace {

constexpr int64_t kMicrosecond = 1000; // nanoseconds

using Entries = std::vector<const BusTrace::Entry*>;

int64_t Nanoseconds(uint64_t microseconds) {
    return static_cast<int64_t>(microseconds) * kMicrosecond;
}

// From the nearest multiple of `period`: from minus half a period up.
int64_t FromGrid(int64_t time, int64_t period) {
    const int64_t rest = ((time % period) + period) % period;
    return rest * 2 < period ? rest : rest - period;
}

// A moment on the grid that lies through the starts: the first one, moved by the median distance of
// all. Distances are taken from the first start, so that they lie on one side of the far end.
std::optional<int64_t> MomentOnGrid(const Entries& frames, int64_t period) {
    if (frames.empty()) {
        return std::nullopt;
    }
    const int64_t first = frames.front()->start;
    std::vector<int64_t> distances;
    for (const auto* const frame : frames) {
        distances.push_back(FromGrid(frame->start - first, period));
    }
    return first + *Median(std::move(distances));
}

bool HasGrid(const CanPlan& plan, const PlannedTask& task) {
    return plan.windowUs % task.periodUs == 0;
}

// The measured moment of each task that was seen and has a place in the window.
std::vector<std::optional<int64_t>> Moments(const CanPlan& plan,
                                            const std::vector<Entries>& frames) {
    std::vector<std::optional<int64_t>> moments;
    for (size_t i = 0; i < frames.size(); ++i) {
        const PlannedTask& task = plan.tasks[i];
        moments.push_back(HasGrid(plan, task) ? MomentOnGrid(frames[i], Nanoseconds(task.periodUs))
                                              : std::nullopt);
    }
    return moments;
}

// How far the moment lies from the task's place when a window begins at `base`.
int64_t FromPlace(int64_t moment, int64_t base, const PlannedTask& task) {
    return FromGrid(moment - base - Nanoseconds(task.offsetUs), Nanoseconds(task.periodUs));
}

std::optional<int64_t> FindBase(const CanPlan& plan,
                                const std::vector<std::optional<int64_t>>& moments) {
    const auto anchor = std::find_if(moments.begin(), moments.end(),
                                     [](const auto& moment) { return moment.has_value(); });
    if (anchor == moments.end()) {
        return std::nullopt;
    }
    const PlannedTask& task = plan.tasks[static_cast<size_t>(anchor - moments.begin())];
    const int64_t latest = **anchor - Nanoseconds(task.offsetUs);
    int64_t best = latest;
    int64_t leastDistance = std::numeric_limits<int64_t>::max();
    for (int64_t base = latest; base > latest - Nanoseconds(plan.windowUs);
         base -= Nanoseconds(task.periodUs)) {
        int64_t distance = 0;
        for (size_t i = 0; i < moments.size(); ++i) {
            distance += moments[i] ? std::abs(FromPlace(*moments[i], base, plan.tasks[i])) : 0;
        }
        if (distance < leastDistance) {
            leastDistance = distance;
            best = base;
        }
    }
    return best;
}

void MeasureSpacing(TaskReceipt& receipt, const Entries& frames, int64_t period) {
    std::vector<int64_t> spacings;
    std::vector<int64_t> deviations;
    for (size_t i = 1; i < frames.size(); ++i) {
        const int64_t spacing = frames[i]->start - frames[i - 1]->start;
        spacings.push_back(spacing);
        // A frame that is missing counts as lost, not as one that is a period late.
        const int64_t periods = std::max<int64_t>(1, (spacing + period / 2) / period);
        deviations.push_back(std::abs(spacing - periods * period));
    }
    receipt.period = Median(std::move(spacings));
    const Spread spread = Spread::Of(std::move(deviations));
    receipt.spacingMedian = spread.median;
    receipt.spacingP99 = spread.p99;
    receipt.spacingMax = spread.latest;
}

void MeasureLoad(PlanReceipt& receipt, const BusTrace& trace) {
    struct Account {
        int64_t first;
        int64_t last;
        int64_t busy;
    };
    std::map<uint8_t, Account> accounts;
    for (const BusTrace::Entry& entry : trace.entries) {
        Account& account =
            accounts.try_emplace(entry.channel, Account{entry.start, entry.end, 0}).first->second;
        account.last = std::max(account.last, entry.end);
        account.busy += entry.end - entry.start;
    }
    for (const auto& [channel, account] : accounts) {
        if (account.last > account.first) {
            receipt.load[channel] = static_cast<double>(account.busy) /
                                    static_cast<double>(account.last - account.first);
        }
    }
}

} // namespace

bool IsOfTask(const BusTrace::Entry& entry, const CanTask& task) {
    return entry.periodic && entry.channel == task.channel && entry.frame.id == task.frame.id &&
           entry.frame.extended == task.frame.extended && entry.frame.fd == task.frame.fd &&
           entry.frame.remote == task.frame.remote;
}

PlanReceipt PlanReceipt::Make(const CanPlan& plan, const BusTrace& trace) {
    PlanReceipt receipt;
    receipt.lostEntries = trace.lost;
    std::vector<Entries> frames(plan.tasks.size());
    receipt.tasks.resize(plan.tasks.size());
    int64_t lastStart = 0;
    for (size_t at = 0; at < trace.entries.size(); ++at) {
        const BusTrace::Entry& entry = trace.entries[at];
        for (size_t i = 0; i < plan.tasks.size(); ++i) {
            if (!entry.ok || !IsOfTask(entry, plan.tasks[i].task)) {
                continue;
            }
            TaskReceipt& task = receipt.tasks[i];
            frames[i].push_back(&entry);
            lastStart = std::max(lastStart, entry.start);
            task.collisions += trace.HadToWait(at) ? 1 : 0;
            task.worstWait = std::max(task.worstWait.value_or(0), entry.start - entry.queued);
        }
    }
    const auto moments = Moments(plan, frames);
    receipt.base = FindBase(plan, moments);
    for (size_t i = 0; i < frames.size(); ++i) {
        const PlannedTask& planned = plan.tasks[i];
        TaskReceipt& task = receipt.tasks[i];
        if (frames[i].empty()) {
            continue;
        }
        const int64_t period = Nanoseconds(planned.periodUs);
        const int64_t first = frames[i].front()->start;
        task.seen = frames[i].size();
        // Up to its own last frame to the nearest period, since both ends jitter; then whole ones.
        const int64_t last = frames[i].back()->start;
        task.due = static_cast<uint64_t>((last - first + period / 2) / period +
                                         (lastStart - last) / period + 1);
        task.lost = *task.due > task.seen ? *task.due - task.seen : 0;
        MeasureSpacing(task, frames[i], period);
        if (receipt.base && moments[i]) {
            task.firstOffGrid = FromPlace(first, *receipt.base, planned);
            task.offset =
                Nanoseconds(planned.offsetUs) + FromPlace(*moments[i], *receipt.base, planned);
        }
    }
    MeasureLoad(receipt, trace);
    return receipt;
}

} // namespace vcihost
