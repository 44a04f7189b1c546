#pragma once

#include "base/ZephTimestamp.h"

#include <memory>
#include <unordered_map>
#include <vector>

class ZephChannel;
class ZephEventLoop;

// What waits for a loop's descriptors. Lives on its loop's thread.
class ZephPoller {
  public:
    using ChannelList = std::vector<ZephChannel*>;

    explicit ZephPoller(ZephEventLoop* loop) : ownerLoop_(loop) {}
    ZephPoller(const ZephPoller&) = delete;
    ZephPoller& operator=(const ZephPoller&) = delete;
    virtual ~ZephPoller() = default;

    // Waits up to `timeoutMs` (0 does not wait, negative has no bound) and appends every ready
    // channel, its revents set. Returns the time when the wait ended. Errors leave the list alone.
    virtual ZephTimestamp poll(int timeoutMs, ChannelList* activeChannels) = 0;

    // Takes over the channel's wanted mask; a new channel is entered.
    virtual void updateChannel(ZephChannel* channel) = 0;
    virtual void removeChannel(ZephChannel* channel) = 0;

    // True when the channel's descriptor is entered here, and for this very channel.
    bool hasChannel(ZephChannel* channel) const;

    // The epoll poller, or null when the environment variable "ZEPH_USE_POLL" is set, to any value:
    // it asks for a poller that is not there.
    static std::unique_ptr<ZephPoller> newDefaultPoller(ZephEventLoop* loop);

  protected:
    std::unordered_map<int, ZephChannel*> channels_; // by descriptor
    ZephEventLoop* ownerLoop_;
};
