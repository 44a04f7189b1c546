#include "base/ZephTimerQueue.h"

#include "base/ZephEventLoop.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include <sys/timerfd.h>
#include <unistd.h>

namespace {

using State = ActiveTimerSet::State;

constexpr int64_t kMinDelayUs = 100; // a delay of 0 would disarm the descriptor
constexpr int64_t kNanoSecondsPerMicroSecond = 1000;

int createTimerfd() {
    return timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
}

timespec howMuchTimeFromNow(ZephTimestamp when) {
    const int64_t now = ZephTimestamp::now().microSecondsSinceEpoch();
    const int64_t wanted = when.microSecondsSinceEpoch();
    const int64_t delay = wanted < now + kMinDelayUs ? kMinDelayUs : wanted - now;
    return {.tv_sec = delay / ZephTimestamp::kMicroSecondsPerSecond,
            .tv_nsec = delay % ZephTimestamp::kMicroSecondsPerSecond * kNanoSecondsPerMicroSecond};
}

void resetTimerfd(int fd, ZephTimestamp when) {
    itimerspec value{};
    value.it_value = howMuchTimeFromNow(when);
    // Fails without a descriptor only, and then the queue does not fire at all.
    timerfd_settime(fd, 0, &value, nullptr);
}

} // namespace

ZephTimerQueue::ZephTimerQueue(ZephEventLoop* loop)
    : loop_(loop),
      timerfd_(createTimerfd()),
      timerfdChannel_(loop, timerfd_.get()),
      idGenerator_(std::make_shared<IdGenerator>()) {
    timerfdChannel_.setReadCallback([this](ZephTimestamp) { handleRead(); });
    timerfdChannel_.enableReading();
}

ZephTimerQueue::~ZephTimerQueue() {
    timerfdChannel_.disableAll();
    timerfdChannel_.remove();
}

ZephTimerId ZephTimerQueue::addTimer(std::function<void()>&& cb, ZephTimestamp when,
                                     double interval) {
    const int64_t sequence = idGenerator_->NextId();
    using Maker = ZephTimerPool::Maker;
    const Maker maker = loop_->isInLoopThread() ? Maker::kOwnThread : Maker::kOtherThread;
    const Slot slot = pool_.acquire(maker, std::move(cb), when, interval, sequence);
    if (maker == Maker::kOwnThread) {
        addTimerInLoop(slot, sequence, when);
    } else {
        loop_->queueInLoop([this, slot, sequence, when] { addTimerInLoop(slot, sequence, when); });
    }
    return {pool_.at(slot), sequence, this, slot};
}

void ZephTimerQueue::cancel(const ZephTimerId& timerId) {
    if (loop_->isInLoopThread()) {
        cancelInLoop(timerId);
    } else {
        loop_->queueInLoop([this, timerId] { cancel(timerId); });
    }
}

void ZephTimerQueue::resetCallback(const ZephTimerId& timerId, std::function<void()> cb) {
    loop_->runInLoop([this, timerId, cb = std::move(cb)]() mutable {
        resetCallbackInLoop(timerId, std::move(cb));
    });
}

void ZephTimerQueue::setInterval(const ZephTimerId& timerId, double interval) {
    loop_->runInLoop([this, timerId, interval] { setIntervalInLoop(timerId, interval); });
}

void ZephTimerQueue::armForFirst() {
    resetTimerfd(timerfd_.get(), timers_.firstExpiration());
    fired_ = false; // arming takes the place of reading
    firstIsNew_ = false;
}

void ZephTimerQueue::readTimerfd() {
    uint64_t expirations = 0;
    // How often it has fired says nothing: the clock says which timers are due.
    static_cast<void>(!read(timerfd_.get(), &expirations, sizeof(expirations)));
    fired_ = false;
}

void ZephTimerQueue::cancelInLoop(const ZephTimerId& timerId) {
    const Slot slot = timerId.slot_;
    const State state = find(timerId);
    if (state == State::kActive) {
        timers_.erase(slot);
        activeTimers_.set(slot, State::kAbsent);
        pool_.release(slot);
    } else if (state == State::kExpired) {
        activeTimers_.set(slot, State::kCanceled);
    }
}

void ZephTimerQueue::resetCallbackInLoop(const ZephTimerId& timerId, std::function<void()> cb) {
    ZephTimer* timer = findTimer(timerId);
    if (timer == nullptr) {
        return;
    }
    if (timer == runningTimer_) { // its callback must not be destroyed under its own feet
        nextCallback_ = std::move(cb);
        hasNextCallback_ = true;
    } else {
        timer->ResetCallBack(std::move(cb));
    }
}

void ZephTimerQueue::setIntervalInLoop(const ZephTimerId& timerId, double interval) {
    if (ZephTimer* timer = findTimer(timerId)) {
        timer->SetInterval(interval);
    }
}

State ZephTimerQueue::find(const ZephTimerId& timerId) const {
    return timerId.queue_ == this ? activeTimers_.find(timerId.slot_, timerId.sequence_)
                                  : State::kAbsent;
}

ZephTimer* ZephTimerQueue::findTimer(const ZephTimerId& timerId) const {
    return find(timerId) == State::kAbsent ? nullptr : pool_.at(timerId.slot_);
}

void ZephTimerQueue::handleRead() {
    const ZephTimestamp now = ZephTimestamp::now();
    fired_ = true;
    std::vector<Slot> expired = std::move(spareExpired_);
    getExpired(now, expired);
    runExpired(expired);
    reset(expired, now);
    expired.clear();
    spareExpired_ = std::move(expired);
}

void ZephTimerQueue::getExpired(ZephTimestamp now, std::vector<Slot>& expired) {
    timers_.takeDue(now, expired);
    for (const Slot slot : expired) {
        const int n = activeTimers_.at(slot) == State::kActive ? 1 : 0;
        if (n != 1) {
            // The two sets hold the same timers. If not, the memory of this process is not ours
            // any more, and no timer of it can be trusted.
            std::fputs("ZephTimerQueue::getExpired: Assertion `n == 1' failed.\n", stderr);
            abort();
        }
        activeTimers_.set(slot, State::kExpired);
    }
}

void ZephTimerQueue::runExpired(const std::vector<Slot>& expired) {
    // A callback that runs the loop itself comes back here for other timers: what belongs to the
    // outer one is kept aside.
    ZephTimer* const outerTimer = runningTimer_;
    const bool outerHasNext = std::exchange(hasNextCallback_, false);
    std::function<void()> outerNext = std::exchange(nextCallback_, {});
    for (const Slot slot : expired) {
        ZephTimer* timer = pool_.at(slot);
        runningTimer_ = timer;
        timer->run();
        runningTimer_ = nullptr;
        if (hasNextCallback_) {
            hasNextCallback_ = false;
            timer->ResetCallBack(std::exchange(nextCallback_, {}));
        }
    }
    runningTimer_ = outerTimer;
    hasNextCallback_ = outerHasNext;
    nextCallback_ = std::move(outerNext);
}

void ZephTimerQueue::reset(const std::vector<Slot>& expired, ZephTimestamp now) {
    for (const Slot slot : expired) {
        ZephTimer* timer = pool_.at(slot);
        if (timer->Repeat() && activeTimers_.at(slot) == State::kExpired) {
            timer->restart(now);
            addTimerInLoop(slot, timer->GetSequence(), timer->GetExpiration());
        } else {
            activeTimers_.set(slot, State::kAbsent);
            pool_.release(slot);
        }
    }
}
