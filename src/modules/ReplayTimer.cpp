#include "modules/ReplayTimer.h"

#include <cerrno>
#include <ctime>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

// Microseconds.
constexpr int32_t kLongestUncorrected = 100;
constexpr int32_t kWakeCost = 20;
constexpr int32_t kUsPerSecond = 1000000;

constexpr long kSoonestNs = 10; // 0 would disarm
constexpr long kNsPerUs = 1000;

} // namespace

bool ReplayTimer::InitEpollTimer() {
    epollFd.reset(epoll_create1(EPOLL_CLOEXEC));
    timerFd.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    wakeFd.reset(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    armed_ = false;
    if (epollFd && timerFd && wakeFd && AddToEpoll(timerFd.get()) && AddToEpoll(wakeFd.get())) {
        return true;
    }
    Close();
    return false;
}

void ReplayTimer::Close() {
    CleanupEpollTimer();
    wakeFd.reset();
}

bool ReplayTimer::AddToEpoll(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    return epoll_ctl(epollFd.get(), EPOLL_CTL_ADD, fd, &event) == 0;
}

void ReplayTimer::CleanupEpollTimer() {
    epollFd.reset();
    timerFd.reset();
}

void ReplayTimer::Wake() {
    if (wakeFd) {
        eventfd_write(wakeFd.get(), 1); // fails where billions of wake-ups wait: one is enough
    }
}

void ReplayTimer::SetTimer(int32_t intervalUs) {
    itimerspec timer{};
    if (intervalUs == kAtOnce) {
        timer.it_value.tv_nsec = kSoonestNs;
    } else if (intervalUs != kDisarm) {
        if (intervalUs > kLongestUncorrected) {
            intervalUs -= kWakeCost;
        }
        timer.it_value.tv_sec = intervalUs / kUsPerSecond;
        timer.it_value.tv_nsec = intervalUs % kUsPerSecond * kNsPerUs;
    }
    armed_ = intervalUs != kDisarm;
    if (timerfd_settime(timerFd.get(), 0, &timer, nullptr) < 0) {
        CleanupEpollTimer();
    }
}

int ReplayTimer::Wait(epoll_event& event) {
    int events = 0;
    do {
        events = epoll_wait(epollFd.get(), &event, 1, -1);
    } while (events == -1 && errno == EINTR); // the process was stopped for a while, and goes on
    return events;
}

bool ReplayTimer::TakeWakeUp(const epoll_event& event) {
    if (event.data.fd != wakeFd.get()) {
        return false;
    }
    eventfd_t wakeUps = 0;
    eventfd_read(wakeFd.get(), &wakeUps);
    return true;
}

bool ReplayTimer::TakeExpiry() {
    uint64_t expiries = 0;
    if (read(timerFd.get(), &expiries, sizeof(expiries)) != sizeof(expiries)) {
        return false;
    }
    armed_ = false;
    return true;
}
