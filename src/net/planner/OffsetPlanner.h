#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <vector>

namespace net {

// Spreads periodic frames in time: gives each task of a batch a place in a repeating window, so
// that no two frames are due at once where that can be, and the delay until its first frame, so
// that all tasks of all batches keep to one grid. docs/scheduler.md has the rules and an example.
//
// The plan grows with each batch and nothing but a new start of the same id takes a task out of it.
// Thread-compatible: one thread at a time.
class OffsetPlanner {
  public:
    // One periodic frame. Input: id, period and transmission time; the rest is the plan.
    struct Task {
        size_t source = 0;                 // the caller's own number for it
        uint32_t id = 0;                   // identifier with flag bits; the channel plays no part
        uint32_t period_us = 0;            // a multiple of 1000, at least 1000
        uint32_t transmission_time_us = 0; // at least 1
        uint32_t offset_us = 0;            // place in the window, a multiple of 20
        uint32_t conflicts = 0;            // instances in the window that meet another frame
        uint64_t kernel_offset_us = 0;     // from the moment of planning to the first frame
    };

    // Takes the task last planned under this id off the timeline, if there is one. Instances that
    // were cut at the end of the window, or overwritten by another task, stay behind.
    void Remove(uint32_t id);

    // Plans the tasks: the shortest period first, of equal ones the longest frame. `now` gives the
    // device time in microseconds and is asked once a task; `start` gets each task when it is
    // planned. Afterwards `tasks` stands in the order of planning.
    void Plan(std::vector<Task>& tasks, const std::function<uint64_t()>& now,
              const std::function<void(const Task&)>& start);

    // The next task planned fixes a new base time. The timeline stays.
    void ForgetBaseTime() { has_base_time_ = false; }

    uint64_t WindowUs() const { return TIME_WINDOW_US; }

  private:
    // The busy intervals of the window. Every start is a multiple of the search step, because
    // offsets and periods are, so an array with one slot a step holds them; beside it stands what a
    // search wants to know of each slot.
    class Timeline {
      public:
        Timeline();

        // Microseconds. An end of 0: no interval starts there.
        uint32_t EndAt(uint32_t start) const;
        void Set(uint32_t start, uint32_t end);

        // How many steps a frame may take that starts in a slot, without a conflict.
        const std::vector<uint16_t>& Room() const { return room_; }

      private:
        size_t StartBehind(size_t slot) const;
        void Fill(size_t from, size_t to, uint32_t busyUntil, size_t next);

        std::vector<uint32_t> ends_;
        std::vector<uint16_t> room_;
    };

    void ExtendWindow(const std::vector<Task>& tasks);
    void findBestOffset(Task& task) const;
    void CountConflicts(const Task& task, size_t first, std::span<uint16_t> conflicts) const;
    void addToTimeline(const Task& task);
    void removeFromTimeline(const Task& task);
    uint64_t KernelOffset(const Task& task, uint64_t current_time_us);

    Timeline timeline_;
    std::map<uint32_t, Task> scheduled_tasks_; // by id
    bool has_base_time_ = false;
    uint64_t global_base_time_us_ = 0; // when window number 0 began
    uint64_t TIME_WINDOW_US = 1;       // least common multiple of all periods so far, bounded
    uint64_t SAFE_WINDOW_US = 10000;   // lead of a first frame before it is due
};

} // namespace net
