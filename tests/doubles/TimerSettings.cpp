#include "doubles/TimerSettings.h"

#include <atomic>
#include <map>
#include <mutex>

#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr int64_t kSecond = 1000000000; // nanoseconds

std::atomic<bool> noting{false};
std::mutex mutex;
std::vector<int64_t> settings;
std::map<int64_t, int64_t> replaced;

// What takes place for a setting.
itimerspec Note(itimerspec value) {
    const int64_t asked = value.it_value.tv_sec * kSecond + value.it_value.tv_nsec;
    const std::lock_guard<std::mutex> lock(mutex);
    settings.push_back(asked);
    if (const auto other = replaced.find(asked); other != replaced.end()) {
        value.it_value = {other->second / kSecond, other->second % kSecond};
    }
    return value;
}

} // namespace

TimerSettings::TimerSettings() {
    const std::lock_guard<std::mutex> lock(mutex);
    settings.clear();
    replaced.clear();
    noting = true;
}

TimerSettings::~TimerSettings() {
    noting = false;
}

void TimerSettings::Replace(int64_t asked, int64_t set) {
    const std::lock_guard<std::mutex> lock(mutex);
    replaced[asked] = set;
}

std::vector<int64_t> TimerSettings::Taken() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return settings;
}

// Takes the place of the C library's, which does the same call.
extern "C" int timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old) {
    const itimerspec taken = noting ? Note(*value) : *value;
    return static_cast<int>(syscall(SYS_timerfd_settime, fd, flags, &taken, old));
}
