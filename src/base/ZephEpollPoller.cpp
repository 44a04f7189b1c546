#include "base/ZephEpollPoller.h"

#include "base/ZephChannel.h"

#include <cerrno>

namespace {

constexpr size_t kInitEventListSize = 16; // doubled whenever a poll fills it

constexpr int64_t kBusyGapUs = 10; // polls that return closer together than this are a busy loop's

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
    busy_ = now.microSecondsSinceEpoch() - lastReturn_.microSecondsSinceEpoch() < kBusyGapUs;
    lastReturn_ = now;
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
    const auto size = static_cast<int>(events_.size());
    // A bounded wait makes the kernel work out its end first, whether anything is ready or not.
    // That is a fifth of the whole call, which a busy loop spares by asking without a wait.
    if (busy_) {
        const int numEvents = epoll_wait(epollfd_.get(), events_.data(), size, 0);
        if (numEvents != 0) {
            return numEvents;
        }
    }
    return epoll_wait(epollfd_.get(), events_.data(), size, timeoutMs);
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
