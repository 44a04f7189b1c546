// How late the slots of a running LIN schedule begin on this machine: lin_slots [SECONDS]
//
// A table of ten slots of 5 ms runs in an executor, with a pipe in place of the socket. The plan of
// a cycle is taken from its first frame, which is written some microseconds behind the cycle's
// start. Prints the count, the median, the 99th percentile and the maximum, in microseconds.

#include "drivers/LinManage.h"
#include "modules/LinSchedule/LinExecutor.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kSlots = 10;
constexpr uint32_t kSlotUs = 5000;
constexpr double kBiasUs = 14; // that the executor plans each cycle short

// Notes when its frames are written, and passes them into a pipe.
class Pipe : public ZephLinCom {
  public:
    explicit Pipe(size_t frames) : ZephLinCom(0) { starts_.reserve(frames); }
    ~Pipe() override {
        if (readEnd_ >= 0) {
            close(readEnd_);
        }
    }

    int Open() override {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return -1;
        }
        readEnd_ = ends[0];
        fd_ = ends[1];
        return 0;
    }

    int Write(const canfd_frame* frame) override {
        if (starts_.size() == starts_.capacity()) {
            return 0;
        }
        starts_.push_back(Clock::now());
        int policy = 0;
        sched_param param{};
        pthread_getschedparam(pthread_self(), &policy, &param);
        priority_ = policy == SCHED_FIFO ? param.sched_priority : 0;
        const int result = ZephLinCom::Write(frame);
        char bytes[sizeof(*frame)]; // a pipe that is never full
        static_cast<void>(!read(readEnd_, bytes, sizeof(bytes)));
        return result;
    }

    // Once nobody writes any more.
    const std::vector<Clock::time_point>& Starts() const { return starts_; }
    int Priority() const { return priority_; }

  private:
    int readEnd_ = -1;
    int priority_ = 0; // real-time, of the writer; 0 for none
    std::vector<Clock::time_point> starts_;
};

double Us(Clock::duration span) {
    return std::chrono::duration<double, std::micro>(span).count();
}

// Of each slot behind a cycle's first, and of the first one of the next cycle.
std::vector<double> Lateness(const std::vector<Clock::time_point>& starts) {
    std::vector<double> late;
    for (size_t first = 0; first + kSlots < starts.size(); first += kSlots) {
        for (size_t slot = 1; slot <= kSlots; ++slot) {
            const double planned = static_cast<double>(slot) * kSlotUs - kBiasUs;
            late.push_back(Us(starts[first + slot] - starts[first]) - planned);
        }
    }
    std::sort(late.begin(), late.end());
    return late;
}

} // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
    if (seconds < 1) {
        std::fprintf(stderr, "lin_slots: '%s' is no number of seconds\n", argv[1]);
        return 2;
    }
    Drivers::LinManage::statusMask = 1;
    ZephLinComM com;
    const auto pipe = std::make_shared<Pipe>(static_cast<size_t>(seconds) * 1000000 / kSlotUs * 2);
    com.ReplaceChannel(0, pipe);
    if (com.LinComMOpen(0) != 0) {
        std::fprintf(stderr, "lin_slots: no pipe can be made\n");
        return 1;
    }
    auto table = std::make_shared<LinTable>(0);
    for (uint8_t pid = 0; pid < kSlots; ++pid) {
        TableItem item;
        item.pid = pid;
        item.delay_us = kSlotUs;
        table->addItem(std::move(item));
    }
    {
        LinExecutor executor(0, com);
        executor.setTable(table);
        executor.start();
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        executor.stop();
    }
    Drivers::LinManage::statusMask = 0;
    const auto late = Lateness(pipe->Starts());
    if (late.empty()) {
        std::fprintf(stderr, "lin_slots: no cycle was run\n");
        return 1;
    }
    std::printf("priority %d slots %zu median %.1f p99 %.1f max %.1f\n", pipe->Priority(),
                late.size(), late[late.size() / 2], late[late.size() * 99 / 100], late.back());
    return 0;
}
