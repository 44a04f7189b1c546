#include "base/ZephChannel.h"

#include "base/ZephEventLoop.h"

#include <sys/epoll.h>

const int ZephChannel::kReadEvent = EPOLLIN | EPOLLPRI;
const int ZephChannel::kWriteEvent = EPOLLOUT;

void ZephChannel::handleEvent(ZephTimestamp receiveTime) {
    if (!tied_) {
        handleEventWithGuard(receiveTime);
        return;
    }
    if (const std::shared_ptr<void> owner = tie_.lock()) {
        handleEventWithGuard(receiveTime);
    }
}

void ZephChannel::tie(const std::shared_ptr<void>& owner) {
    tie_ = owner;
    tied_ = true;
}

void ZephChannel::remove() {
    if (!addedToLoop_) {
        return;
    }
    if (!isNoneEvent()) {
        disableAll();
    }
    addedToLoop_ = false;
    loop_->removeChannel(this);
}

void ZephChannel::setEvents(int events) {
    events_ = events;
    update();
}

void ZephChannel::update() {
    addedToLoop_ = true;
    loop_->updateChannel(this);
}

void ZephChannel::handleEventWithGuard(ZephTimestamp receiveTime) {
    eventHandling_ = true;
    const auto revents = static_cast<uint32_t>(revents_);
    // With data still to be read a hang-up can wait: reading will find the end of the stream.
    if ((revents & EPOLLHUP) != 0 && (revents & EPOLLIN) == 0 && closeCallback_) {
        closeCallback_();
    }
    if ((revents & EPOLLERR) != 0 && errorCallback_) {
        errorCallback_();
    }
    if ((revents & (EPOLLIN | EPOLLPRI | EPOLLRDHUP)) != 0 && readCallback_) {
        readCallback_(receiveTime);
    }
    if ((revents & EPOLLOUT) != 0 && writeCallback_) {
        writeCallback_();
    }
    eventHandling_ = false;
}
