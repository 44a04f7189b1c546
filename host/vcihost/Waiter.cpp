#include "vcihost/Waiter.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <poll.h>

namespace vcihost {

namespace {

// The longest single poll. A wait without end is made of many.
constexpr std::chrono::milliseconds kLongestPoll = std::chrono::hours(1);

} // namespace

Deadline After(std::chrono::nanoseconds duration) {
    return std::chrono::steady_clock::now() + duration;
}

short Waiter::Wait(int fd, short events, Deadline deadline) const {
    for (;;) {
        const auto left =
            std::max(deadline - std::chrono::steady_clock::now(), Deadline::duration{});
        // Rounded up: a wait that ends early would be a busy loop for its last millisecond.
        const auto ms = std::min(
            kLongestPoll, left < kLongestPoll ? std::chrono::ceil<std::chrono::milliseconds>(left)
                                              : kLongestPoll);
        pollfd fds[] = {{cancelFd_, POLLIN, 0}, {fd, events, 0}};
        const int ready = poll(fds, 2, static_cast<int>(ms.count()));
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (ready > 0 && fds[0].revents != 0) {
            throw Interrupted();
        }
        if (ready > 0) {
            return fds[1].revents;
        }
        if (ready == 0 && std::chrono::steady_clock::now() >= deadline) {
            return 0;
        }
    }
}

} // namespace vcihost
