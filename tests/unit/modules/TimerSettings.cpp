#include "modules/TimerSettings.h"

#include <atomic>
#include <mutex>

#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

std::atomic<bool> noting{false};
std::mutex mutex;
std::vector<int64_t> settings;

void Note(const itimerspec& value) {
    const std::lock_guard<std::mutex> lock(mutex);
    settings.push_back(value.it_value.tv_sec * INT64_C(1000000000) + value.it_value.tv_nsec);
}

} // namespace

TimerSettings::TimerSettings() {
    const std::lock_guard<std::mutex> lock(mutex);
    settings.clear();
    noting = true;
}

TimerSettings::~TimerSettings() {
    noting = false;
}

std::vector<int64_t> TimerSettings::Taken() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return settings;
}

// Takes the place of the C library's, which does the same call.
extern "C" int timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old) {
    if (noting) {
        Note(*value);
    }
    return static_cast<int>(syscall(SYS_timerfd_settime, fd, flags, value, old));
}
