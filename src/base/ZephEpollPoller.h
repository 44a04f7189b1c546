#pragma once

#include "base/ZephPoller.h"
#include "utils/UniqueFd.h"

#include <vector>

#include <sys/epoll.h>

// Waits with epoll, level-triggered. Lives on its loop's thread.
class ZephEpollPoller : public ZephPoller {
  public:
    explicit ZephEpollPoller(ZephEventLoop* loop);

    ZephTimestamp poll(int timeoutMs, ChannelList* activeChannels) override;
    void updateChannel(ZephChannel* channel) override;
    void removeChannel(ZephChannel* channel) override;

  private:
    int wait(int timeoutMs);
    void fillActiveChannels(int numEvents, ChannelList* activeChannels) const;
    void update(int operation, ZephChannel* channel);

    UniqueFd epollfd_;
    std::vector<epoll_event> events_;
    ZephTimestamp lastReturn_;
    bool busy_ = false; // the last polls came in quick succession
};
