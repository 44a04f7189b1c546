#include "base/ZephEpollPoller.h"

#include "base/ZephChannel.h"

#include <cerrno>
#include <cstdint>

#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr size_t kInitEventListSize = 16; // doubled whenever a poll fills it

constexpr ZephChannel* kBound = nullptr; // in place of a channel, marks what bounds the wait

constexpr int kMsPerSecond = 1000;
constexpr int64_t kNsPerMs = 1'000'000;

// What ZephChannel::index() says.
constexpr int kNew = -1;    // not entered
constexpr int kAdded = 1;   // entered, and in the epoll set
constexpr int kDeleted = 2; // entered, but out of the epoll set: nothing is wanted

} // namespace

ZephEpollPoller::ZephEpollPoller(ZephEventLoop* loop)
    : ZephPoller(loop), epollfd_(epoll_create1(EPOLL_CLOEXEC)), events_(kInitEventListSize) {}

ZephTimestamp ZephEpollPoller::poll(int timeoutMs, ChannelList* activeChannels) {
    const int numEvents = wait(timeoutMs);
    const int savedErrno = errno;
    const ZephTimestamp now = ZephTimestamp::now();
    if (numEvents > 0) {
        fillActiveChannels(numEvents, activeChannels);
        if (static_cast<size_t>(numEvents) == events_.size()) {
            events_.resize(events_.size() * 2);
        }
    } else if (numEvents < 0 && savedErrno != EINTR) {
        errno = savedErrno;
    }
    return now;
}

int ZephEpollPoller::wait(int timeoutMs) {
    if (timeoutMs > 0 && timeoutMs != boundMs_) {
        setBound(timeoutMs);
    }
    const bool bounded = timeoutMs > 0 && bound_;
    return epoll_wait(epollfd_.get(), events_.data(), static_cast<int>(events_.size()),
                      bounded ? -1 : timeoutMs);
}

void ZephEpollPoller::setBound(int timeoutMs) {
    boundMs_ = timeoutMs;
    bound_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    const timespec period{.tv_sec = timeoutMs / kMsPerSecond,
                          .tv_nsec = timeoutMs % kMsPerSecond * kNsPerMs};
    const itimerspec value{.it_interval = period, .it_value = period};
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = kBound;
    if (timerfd_settime(bound_.get(), 0, &value, nullptr) != 0 ||
        epoll_ctl(epollfd_.get(), EPOLL_CTL_ADD, bound_.get(), &event) != 0) {
        bound_.reset(); // short of descriptors: the wait itself will be bounded
    }
}

void ZephEpollPoller::clearBound() const {
    uint64_t expirations = 0;
    static_cast<void>(!read(bound_.get(), &expirations, sizeof(expirations)));
}

void ZephEpollPoller::updateChannel(ZephChannel* channel) {
    const int index = channel->index();
    if (index == kAdded) {
        if (channel->isNoneEvent()) {
            update(EPOLL_CTL_DEL, channel);
            channel->SetIndex(kDeleted);
        } else {
            update(EPOLL_CTL_MOD, channel);
        }
        return;
    }
    if (index == kNew) {
        channels_[channel->fd()] = channel;
    }
    channel->SetIndex(kAdded);
    update(EPOLL_CTL_ADD, channel);
}

void ZephEpollPoller::removeChannel(ZephChannel* channel) {
    channels_.erase(channel->fd());
    if (channel->index() == kAdded) {
        update(EPOLL_CTL_DEL, channel);
    }
    channel->SetIndex(kNew);
}

void ZephEpollPoller::fillActiveChannels(int numEvents, ChannelList* activeChannels) const {
    for (int i = 0; i < numEvents; ++i) {
        const epoll_event& event = events_[static_cast<size_t>(i)];
        auto* channel = static_cast<ZephChannel*>(event.data.ptr);
        if (channel == kBound) {
            clearBound();
            continue;
        }
        channel->set_revents(static_cast<int>(event.events));
        activeChannels->push_back(channel);
    }
}

void ZephEpollPoller::update(int operation, ZephChannel* channel) {
    epoll_event event{};
    event.events = static_cast<uint32_t>(channel->events());
    event.data.ptr = channel;
    // A descriptor that epoll refuses is a channel that never fires, and no more than that.
    epoll_ctl(epollfd_.get(), operation, channel->fd(), &event);
}
