#pragma once

#include <atomic>
#include <cstddef>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace limlog {

// The serial console. Safe from any thread.
class StdoutWriter {
  public:
    // Writes to the console, which is opened at the first call; a console that is missing is tried
    // again at the next. Returns what write() returns.
    static ssize_t mywrite(const char* data, size_t n) {
        static std::atomic<int> fd{-1};
        return writeTo("/dev/ttyPS0", fd, data, n);
    }

    // Does so for the console at `path`, whose descriptor is kept in `fd`: below 1 while there is
    // none. It is the caller's to close.
    static ssize_t writeTo(const char* path, std::atomic<int>& fd, const char* data, size_t n) {
        int console = fd.load(std::memory_order_acquire);
        if (console < 1) {
            // The start of the daemon makes the console its session's terminal, on purpose. Opening
            // it for a log line must not change whose terminal it is: hence O_NOCTTY.
            const int opened = open(path, O_RDWR | O_APPEND | O_CLOEXEC | O_NOCTTY);
            if (fd.compare_exchange_strong(console, opened, std::memory_order_acq_rel)) {
                console = opened;
            } else if (opened >= 0) {
                close(opened); // another thread was first, and `console` is its descriptor
            }
        }
        return write(console, data, n);
    }
};

} // namespace limlog
