#pragma once

#include "modules/LinSchedule/LinTable.h"
#include "net/ZephLinComM.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// One slot of a running schedule. The duration is a copy: another response of a running table
// changes what is sent at once, and how long its slot is from the next setTable() on.
struct TimeSlot {
    std::chrono::microseconds duration;
    const TableItem* item;
};

// Walks a schedule table of one channel for ever, in a thread of its own at the highest real-time
// priority, where the process may have that: a slot begins with its frame, and then the thread
// sleeps to the slot's end. In the normal case a slot allocates nothing, takes no lock and prints
// nothing; a frame that cannot be sent is told on standard output, and the schedule goes on. The
// operations belong to the main thread.
class LinExecutor {
  public:
    // `linChannel`: 0 or 1. The frames go by way of `lincomM`, which outlives this object.
    explicit LinExecutor(int linChannel, ZephLinComM& lincomM = ZephLinComM::GetInstance());
    ~LinExecutor(); // stops
    LinExecutor(const LinExecutor&) = delete;
    LinExecutor& operator=(const LinExecutor&) = delete;

    // Starts with the first slot, 26 ms from now. Without effect while running. Where there is no
    // thread to be had, it stays stopped and tells so on standard output.
    void start();

    // Returns when the slot in progress has ended: what is on the bus is not cut.
    void stop();

    bool getRunning() const { return is_running_; }

    // Takes the slots of a table, whose items stay as they are as long as they are walked. Only
    // while stopped. Without a table nothing is changed.
    void setTable(std::shared_ptr<LinTable> table);

  private:
    void timerLoop();
    void SendSlot(const TableItem& item);

    std::vector<TimeSlot> time_slots_;
    std::chrono::microseconds total_cycle_{0}; // sum of the durations; 0 makes the loop rest
    std::atomic<bool> is_running_{false};
    std::thread timer_thread_;
    std::shared_ptr<LinTable> table_;
    ZephLinComM& lincomM_;
    uint8_t linChannel_;
    std::mutex cv_mutex_; // taken by setTable alone
};
