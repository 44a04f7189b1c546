#pragma once

#include "net/planner/OffsetPlanner.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <numeric>
#include <vector>

// The search for offsets over an ordered map of busy intervals, candidate by candidate: the
// peer that the planner is measured against, and must find the same offsets as.
class MapPlanner {
  public:
    using Task = net::OffsetPlanner::Task;

    void Remove(uint32_t id) {
        if (const auto known = scheduled_.find(id); known != scheduled_.end()) {
            RemoveFromTimeline(known->second);
        }
    }

    void Plan(std::vector<Task>& tasks) {
        std::sort(tasks.begin(), tasks.end(), [](const Task& a, const Task& b) {
            return a.period_us != b.period_us ? a.period_us < b.period_us
                                              : a.transmission_time_us > b.transmission_time_us;
        });
        for (const Task& task : tasks) {
            window_ =
                window_ / std::gcd<uint64_t, uint64_t>(window_, task.period_us) * task.period_us;
            window_ = std::min<uint64_t>(window_, kMostWindowUs + 1); // more is cut below anyway
        }
        window_ = std::min<uint64_t>(window_, kMostWindowUs);
        for (Task& task : tasks) {
            FindBestOffset(task);
            scheduled_[task.id] = task;
            AddToTimeline(task);
        }
    }

  private:
    static constexpr uint64_t kMostWindowUs = 200000;

    void FindBestOffset(Task& task) const {
        task.conflicts = UINT32_MAX;
        for (uint32_t offset = 0; offset < task.period_us; offset += 20) {
            const uint32_t conflicts = Conflicts(task, offset);
            if (conflicts < task.conflicts) {
                task.conflicts = conflicts;
                task.offset_us = offset;
            }
            if (conflicts == 0) {
                return;
            }
        }
    }

    uint32_t Conflicts(const Task& task, uint32_t offset) const {
        uint32_t conflicts = 0;
        for (uint64_t start = offset; start < window_; start += task.period_us) {
            const uint64_t end = start + task.transmission_time_us;
            const auto it = timeline_.upper_bound(static_cast<uint32_t>(start));
            if (it != timeline_.begin() && std::prev(it)->second > start) {
                ++conflicts;
            } else if (it != timeline_.end() && end > it->first) {
                ++conflicts;
            }
        }
        return conflicts;
    }

    void AddToTimeline(const Task& task) {
        for (uint64_t start = task.offset_us; start < window_; start += task.period_us) {
            timeline_[static_cast<uint32_t>(start)] =
                static_cast<uint32_t>(std::min(start + task.transmission_time_us, window_));
        }
    }

    void RemoveFromTimeline(const Task& task) {
        for (uint64_t start = task.offset_us; start < window_; start += task.period_us) {
            const auto it = timeline_.find(static_cast<uint32_t>(start));
            if (it != timeline_.end() && it->second == start + task.transmission_time_us) {
                timeline_.erase(it);
            }
        }
    }

    std::map<uint32_t, uint32_t> timeline_;
    std::map<uint32_t, Task> scheduled_;
    uint64_t window_ = 1;
};
