#pragma once

#include "base/ZephTimestamp.h"

#include <functional>
#include <memory>
#include <utility>

class ZephEventLoop;

// One descriptor on one loop: what is wanted of it, and what to call when it is ready. It does not
// own the descriptor. Lives on its loop's thread.
//
// The owner calls remove() before it destroys the channel; the destructor does not. A callback may
// remove and destroy any other channel of the loop, which is then not called again, not even for an
// event that the running poll has already returned. A channel whose own callback may end its owner
// is tied to that owner.
class ZephChannel {
  public:
    using ReadEventCallback = std::function<void(ZephTimestamp)>; // when the poll returned
    using EventCallback = std::function<void()>;

    // `fd`: any descriptor that epoll takes. One that it does not take, like -1, never fires.
    ZephChannel(ZephEventLoop* loop, int fd) : loop_(loop), fd_(fd) {}
    ZephChannel(const ZephChannel&) = delete;
    ZephChannel& operator=(const ZephChannel&) = delete;

    // Calls what `revents` asks for. The loop calls this; `receiveTime` is when its poll returned.
    void handleEvent(ZephTimestamp receiveTime);

    void setReadCallback(ReadEventCallback cb) { readCallback_ = std::move(cb); }
    void setWriteCallback(EventCallback cb) { writeCallback_ = std::move(cb); }
    void setCloseCallback(EventCallback cb) { closeCallback_ = std::move(cb); }
    void setErrorCallback(EventCallback cb) { errorCallback_ = std::move(cb); }

    // From now on the owner is held while callbacks run, and once it is gone nothing is called.
    void tie(const std::shared_ptr<void>& owner);

    int fd() const { return fd_; }
    int events() const { return events_; }                // wanted, an epoll mask
    void set_revents(int revents) { revents_ = revents; } // returned, an epoll mask

    void enableReading() { setEvents(events_ | kReadEvent); }
    void disableReading() { setEvents(events_ & ~kReadEvent); }
    void enableWriting() { setEvents(events_ | kWriteEvent); }
    void disableWriting() { setEvents(events_ & ~kWriteEvent); }
    void disableAll() { setEvents(kNoneEvent); }

    bool isNoneEvent() const { return events_ == kNoneEvent; }
    bool isWriting() const { return (events_ & kWriteEvent) != 0; }
    bool isReading() const { return (events_ & kReadEvent) != 0; } // either of the two bits

    // The poller's note of where this channel stands with it.
    int index() const { return index_; }
    void SetIndex(int index) { index_ = index; }

    ZephEventLoop* ownerLoop() const { return loop_; }

    // Takes the channel off its loop; one that was never enabled is left alone. It may be enabled
    // again afterwards.
    void remove();

  private:
    static constexpr int kNoneEvent = 0;
    static const int kReadEvent;  // EPOLLIN | EPOLLPRI
    static const int kWriteEvent; // EPOLLOUT

    void setEvents(int events);
    void update();
    void handleEventWithGuard(ZephTimestamp receiveTime);

    ZephEventLoop* loop_;
    const int fd_;
    int events_ = kNoneEvent;
    int revents_ = 0;
    int index_ = -1;
    std::weak_ptr<void> tie_;
    bool tied_ = false;
    bool eventHandling_ = false;
    bool addedToLoop_ = false;
    ReadEventCallback readCallback_;
    EventCallback writeCallback_;
    EventCallback closeCallback_;
    EventCallback errorCallback_;
};
