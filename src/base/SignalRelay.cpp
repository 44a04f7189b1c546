#include "base/SignalRelay.h"

#include <cerrno>
#include <cstdlib>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr int kSignalLimit = 32;

} // namespace

SignalRelay& SignalRelay::GetInstance() {
    static SignalRelay instance;
    return instance;
}

SignalRelay::SignalRelay() : wakeup_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!wakeup_) {
        abort(); // without it the program could not be ended in order
    }
}

void SignalRelay::Post(int signal) noexcept {
    const int savedErrno = errno;
    pending_.fetch_or(1U << signal);
    const uint64_t one = 1;
    // A full counter already keeps the descriptor readable.
    static_cast<void>(!write(wakeup_.get(), &one, sizeof(one)));
    errno = savedErrno;
}

bool SignalRelay::Dispatch() {
    uint64_t count = 0;
    // First the wake-up, then the signals: one posted in between wakes again and finds nothing.
    static_cast<void>(!read(wakeup_.get(), &count, sizeof(count)));
    const uint32_t signals = pending_.exchange(0);
    bool end = false;
    for (int signal = 1; signal < kSignalLimit; ++signal) {
        if ((signals >> signal & 1U) != 0 && action_) {
            end = action_(signal) || end;
        }
    }
    return end;
}
