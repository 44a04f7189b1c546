#include "modules/LinSchedule/LinExecutor.h"

#include "base/ThreadPriority.h"
#include "modules/LinSchedule/LinFrame.h"
#include "modules/LinSchedule/LinSlot.h"
#include "utils/Console.h"

#include <cerrno>
#include <ctime>
#include <string>
#include <system_error>
#include <utility>

namespace {

using Clock = LinCycle::Clock;
using std::chrono::microseconds;

// The thread's priority is set from outside, and must be in force before the first frame.
constexpr std::chrono::milliseconds kPriorityWait{26};

// A cycle of slots without a length would keep a processor from everybody else.
constexpr std::chrono::milliseconds kEmptyCycle{1};

// To a point of time and not for a while: nothing is lost between a look at the clock and the
// sleep. The steady clock is the kernel's monotonic one.
void SleepUntil(Clock::time_point end) {
    const auto ns = std::chrono::nanoseconds(end.time_since_epoch()).count();
    constexpr long kNanosecondsPerSecond = 1'000'000'000;
    const timespec at{ns / kNanosecondsPerSecond, ns % kNanosecondsPerSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
    }
}

} // namespace

LinExecutor::LinExecutor(int linChannel, ZephLinComM& lincomM)
    : lincomM_(lincomM), linChannel_(static_cast<uint8_t>(linChannel)) {}

LinExecutor::~LinExecutor() {
    stop();
}

void LinExecutor::setTable(std::shared_ptr<LinTable> table) {
    const std::lock_guard lock(cv_mutex_);
    if (table == nullptr) {
        PrintLine("LinExecutor::setTable table is null");
        return;
    }
    time_slots_.clear();
    total_cycle_ = microseconds(0);
    table_ = std::move(table);
    for (const TableItem& item : table_->items()) {
        const microseconds duration(item.delay_us);
        total_cycle_ += duration;
        time_slots_.push_back({duration, &item});
    }
}

void LinExecutor::start() {
    if (is_running_.exchange(true)) {
        return;
    }
    try {
        timer_thread_ = std::thread([this] { timerLoop(); });
    } catch (const std::system_error& error) {
        is_running_ = false;
        PrintLine("LIN" + std::to_string(linChannel_) +
                  ": the schedule does not start, there is no thread for it: " + error.what());
        return;
    }
    SetHighestPriority(timer_thread_);
}

void LinExecutor::stop() {
    is_running_ = false;
    if (timer_thread_.joinable()) {
        timer_thread_.join();
    }
}

void LinExecutor::timerLoop() {
    std::this_thread::sleep_for(kPriorityWait);
    LinCycle cycle; // one for all: a cycle may begin late behind the one before
    while (is_running_) {
        const Clock::time_point cycle_start = Clock::now();
        cycle.Begin(cycle_start);
        for (const TimeSlot& slot : time_slots_) {
            if (!is_running_) {
                return;
            }
            const Clock::time_point slot_end = cycle.NextEnd(Clock::now(), slot.duration);
            SendSlot(*slot.item);
            SleepUntil(slot_end);
        }
        if (total_cycle_ == microseconds(0)) {
            SleepUntil(cycle_start + kEmptyCycle);
        }
    }
}

void LinExecutor::SendSlot(const TableItem& item) {
    const canfd_frame frame = MakeLinFrame(item.pid, item.sent->Read());
    // A frame that was not sent is told there, and its slot passes without it.
    static_cast<void>(lincomM_.WriteCallback(linChannel_, &frame));
}
