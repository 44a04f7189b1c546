#include "base/ZephPoller.h"

#include "base/ZephChannel.h"
#include "base/ZephEpollPoller.h"

#include <cstdlib>

bool ZephPoller::hasChannel(ZephChannel* channel) const {
    const auto entry = channels_.find(channel->fd());
    return entry != channels_.end() && entry->second == channel;
}

std::unique_ptr<ZephPoller> ZephPoller::newDefaultPoller(ZephEventLoop* loop) {
    if (std::getenv("ZEPH_USE_POLL") != nullptr) {
        return nullptr;
    }
    return std::make_unique<ZephEpollPoller>(loop);
}
