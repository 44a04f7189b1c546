#pragma once

#include "utils/UniqueFd.h"

#include <cstdint>

struct epoll_event;

// What the replay thread waits on: the time of the next frame, and to be woken. Opened and closed
// by the main thread while there is no replay thread; in between Wake() belongs to the main thread
// and the rest to the replay thread.
class ReplayTimer {
  public:
    // Intervals in microseconds that mean something else.
    static constexpr int32_t kAtOnce = 0;
    static constexpr int32_t kDisarm = -1;

    // False, with nothing open, when a descriptor cannot be had.
    bool InitEpollTimer();
    void Close();

    // Not by way of the timer, which may have failed.
    void Wake();

    // One shot. Set short by what waking up costs, except where that would be a large part of the
    // interval. A negative interval is refused by the kernel; then the next Wait() fails.
    void SetTimer(int32_t intervalUs);

    // An expiry is to come, or to be taken.
    bool IsArmed() const { return armed_; }

    // One event, as epoll_wait does, without a time limit.
    int Wait(epoll_event& event);

    // True when the event was a wake-up, which is then over.
    bool TakeWakeUp(const epoll_event& event);

    // False when the timer has not expired, or was set again meanwhile.
    bool TakeExpiry();

  private:
    void CleanupEpollTimer();
    bool AddToEpoll(int fd);

    bool armed_ = false;
    UniqueFd wakeFd;
    UniqueFd epollFd;
    UniqueFd timerFd;
};
