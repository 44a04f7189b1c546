#pragma once

#include <chrono>
#include <exception>

namespace vcihost {

// A moment until which something is waited for; time_point::max() is never.
using Deadline = std::chrono::steady_clock::time_point;

// The moment `duration` from now.
Deadline After(std::chrono::nanoseconds duration);

// A wait was ended by the cancel descriptor.
class Interrupted : public std::exception {
  public:
    const char* what() const noexcept override { return "interrupted"; }
};

// Waits for a descriptor or for a moment. Once the cancel descriptor is readable, every wait ends
// by throwing Interrupted. A plain value, used on one thread.
class Waiter {
  public:
    // `cancelFd`: borrowed, must outlive the waiter; negative for none.
    explicit Waiter(int cancelFd = -1) : cancelFd_(cancelFd) {}

    // Until `fd` (negative: none) shows one of the poll `events`, an error or a hang-up. Returns
    // what it shows, 0 when the deadline came first; a deadline that has passed looks once.
    short Wait(int fd, short events, Deadline deadline) const;

    // Until the moment.
    void Pause(Deadline until) const { Wait(-1, 0, until); }

  private:
    int cancelFd_;
};

} // namespace vcihost
