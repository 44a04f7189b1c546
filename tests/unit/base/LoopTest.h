#pragma once

#include "base/ZephEventLoop.h"
#include "utils/UniqueFd.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <gtest/gtest.h>

// A deadline that no healthy run comes near, also under a sanitizer on a busy machine, yet below
// the ten seconds for which an idle loop sleeps: what waits for that sleep to end misses it.
constexpr std::chrono::seconds kDeadline{8};

// Standard output goes nowhere while this lives: a loop says there that it starts.
class QuietOutput {
  public:
    QuietOutput() : console_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)) {
        fflush(stdout);
        const UniqueFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
        dup2(null.get(), STDOUT_FILENO);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;
    ~QuietOutput() {
        fflush(stdout);
        dup2(console_.get(), STDOUT_FILENO);
    }

  private:
    UniqueFd console_;
};

// Runs `loop` until something quits it, which has to come before the deadline.
inline void RunUntilQuit(ZephEventLoop& loop) {
    const QuietOutput quiet;
    bool late = false;
    const ZephTimerId watchdog =
        loop.runAfter(static_cast<double>(kDeadline.count()), [&loop, &late] {
            late = true;
            loop.quit();
        });
    loop.loop();
    loop.cancel(watchdog);
    EXPECT_FALSE(late) << "nothing quit the loop";
}

// Runs `loop` until all that is queued so far has run.
inline void RunPending(ZephEventLoop& loop) {
    loop.queueInLoop([&loop] { loop.quit(); });
    loop.wakeup();
    RunUntilQuit(loop);
}

// Runs `work` on the thread of `loop` and waits for it.
inline void RunOn(ZephEventLoop& loop, const std::function<void()>& work) {
    std::promise<void> done;
    loop.queueInLoop([&] {
        work();
        done.set_value();
    });
    ASSERT_EQ(done.get_future().wait_for(kDeadline), std::future_status::ready);
}

// An eventfd that is readable from the start.
inline UniqueFd ReadableFd() {
    return UniqueFd(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
}
