#pragma once

#include "base/ZephPoller.h"
#include "utils/UniqueFd.h"

#include <vector>

#include <sys/epoll.h>

// Waits with epoll, level-triggered. A bounded wait may end before its time with nothing ready,
// when polls follow each other. Lives on its loop's thread.
class ZephEpollPoller : public ZephPoller {
  public:
    explicit ZephEpollPoller(ZephEventLoop* loop);

    ZephTimestamp poll(int timeoutMs, ChannelList* activeChannels) override;
    void updateChannel(ZephChannel* channel) override;
    void removeChannel(ZephChannel* channel) override;

  private:
    int wait(int timeoutMs);
    void setBound(int timeoutMs);
    void clearBound() const;
    void fillActiveChannels(int numEvents, ChannelList* activeChannels) const;
    void update(int operation, ZephChannel* channel);

    UniqueFd epollfd_;
    std::vector<epoll_event> events_;

    // Ends waits: a timer in the epoll set that expires every boundMs_. As an argument of
    // epoll_wait, the end of a wait is worked out and set up anew each time, which makes a fifth of
    // the call even when something is ready.
    UniqueFd bound_;
    int boundMs_ = 0;
};
