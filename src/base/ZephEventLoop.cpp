#include "base/ZephEventLoop.h"

#include "base/ZephChannel.h"
#include "base/ZephTimerQueue.h"
#include "utils/Console.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr int kPollTimeMs = 10000; // bounds an idle sleep only: all work comes through descriptors

constinit thread_local ZephEventLoop* t_loopInThisThread = nullptr;

// A loop without a poller could do nothing but fault, and its first use stands right here: the
// timer queue enters its descriptor while the loop is made.
std::unique_ptr<ZephPoller> RequirePoller(std::unique_ptr<ZephPoller> poller) {
    if (!poller) {
        std::fputs("ZephEventLoop: ZEPH_USE_POLL asks for a poll(2) poller, which does not exist; "
                   "unset ZEPH_USE_POLL\n",
                   stderr);
        abort();
    }
    return poller;
}

UniqueFd CreateEventfd() {
    UniqueFd fd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!fd) {
        std::perror("ZephEventLoop: no eventfd to wake the loop with; allow more open descriptors");
        abort();
    }
    return fd;
}

} // namespace

ZephEventLoop::ZephEventLoop()
    : threadId_(ZephCurrentThread::tid()),
      poller_(RequirePoller(ZephPoller::newDefaultPoller(this))),
      timerQueue_(std::make_unique<ZephTimerQueue>(this)),
      wakeupFd_(CreateEventfd()),
      wakeupChannel_(std::make_unique<ZephChannel>(this, wakeupFd_.get())) {
    if (t_loopInThisThread == nullptr) {
        t_loopInThisThread = this;
    }
    wakeupChannel_->setReadCallback([this](ZephTimestamp) { handleRead(); });
    wakeupChannel_->enableReading();
}

ZephEventLoop::~ZephEventLoop() {
    // What functors and timers hold may take its channels off this loop as it goes, so it goes
    // while the loop is whole.
    for (bool more = true; more;) {
        std::vector<Functor> dropped;
        {
            const std::lock_guard lock(mutex_);
            dropped.swap(pendingFunctors_);
        }
        more = !dropped.empty(); // what goes may queue something more
        dropped.clear();
        timerQueue_->dropCallbacks();
    }
    timerQueue_.reset();
    wakeupChannel_->disableAll();
    wakeupChannel_->remove();
    wakeupFd_.reset();
    t_loopInThisThread = nullptr;
}

void ZephEventLoop::loop() {
    PrintLine("[ZephA] ZephEventLoop::loop(), TID = " + std::to_string(pthread_self()));
    looping_ = true;
    quit_ = false;
    while (!quit_) {
        activeChannels_.clear();
        timerQueue_->arm();
        pollRetureTime_ = poller_->poll(beginWait(), &activeChannels_);
        waiting_.store(false, std::memory_order_relaxed);
        ++iteration_;
        handleActiveChannels();
        doPendingFunctors();
    }
    // Where a callback ran the loop, the list of the outer run is done with: what is still ready
    // will be reported again.
    activeChannels_.clear();
    looping_ = false;
}

void ZephEventLoop::quit() {
    quit_ = true;
    if (!isInLoopThread()) {
        wakeup();
    }
}

void ZephEventLoop::runInLoop(Functor cb) {
    if (isInLoopThread()) {
        cb();
    } else {
        queueInLoop(std::move(cb));
    }
}

void ZephEventLoop::queueInLoop(Functor cb) {
    {
        const std::lock_guard lock(mutex_);
        pendingFunctors_.push_back(std::move(cb));
        hasPending_ = true;
    }
    // From other threads a loop is woken only if it waits: one that works looks for functors before
    // it does. A functor that queues another wakes its own loop: the next iteration
    // shows that wake-up as an event.
    if (isInLoopThread() ? callingPendingFunctors_ : waiting_) {
        wakeup();
    }
}

ZephTimerId ZephEventLoop::runAt(ZephTimestamp time, std::function<void()> cb) {
    return timerQueue_->addTimer(std::move(cb), time, 0.0);
}

ZephTimerId ZephEventLoop::runAfter(double delay, std::function<void()> cb) {
    return runAt(addTime(ZephTimestamp::now(), delay), std::move(cb));
}

ZephTimerId ZephEventLoop::runEvery(double interval, std::function<void()> cb) {
    return timerQueue_->addTimer(std::move(cb), addTime(ZephTimestamp::now(), interval), interval);
}

void ZephEventLoop::cancel(const ZephTimerId& timerId) {
    timerQueue_->cancel(timerId);
}

void ZephEventLoop::wakeup() {
    const uint64_t one = 1;
    // A full counter is as good: it keeps the descriptor readable.
    static_cast<void>(!write(wakeupFd_.get(), &one, sizeof(one)));
}

void ZephEventLoop::updateChannel(ZephChannel* channel) {
    poller_->updateChannel(channel);
}

void ZephEventLoop::removeChannel(ZephChannel* channel) {
    poller_->removeChannel(channel);
    // The channel may be gone before its turn in the running iteration comes.
    std::replace(activeChannels_.begin(), activeChannels_.end(), channel,
                 static_cast<ZephChannel*>(nullptr));
}

bool ZephEventLoop::hasChannel(ZephChannel* channel) {
    return poller_->hasChannel(channel);
}

ZephEventLoop* ZephEventLoop::getEventLoopOfCurrentThread() {
    return t_loopInThisThread;
}

// Announces the wait and returns for how long it may be: not at all if there are functors. This
// writes and then reads what queueInLoop reads after writing, all of it in one order that every
// thread sees: a functor that is not noticed here has noticed the wait, and wakes it.
int ZephEventLoop::beginWait() {
    waiting_ = true;
    return hasPending_ ? 0 : kPollTimeMs;
}

void ZephEventLoop::handleRead() {
    uint64_t count = 0;
    // An empty counter means that an earlier read took this wake-up too.
    static_cast<void>(!read(wakeupFd_.get(), &count, sizeof(count)));
}

void ZephEventLoop::handleActiveChannels() {
    eventHandling_.store(true, std::memory_order_relaxed);
    // By index: a callback that runs the loop itself replaces the list under this one.
    for (size_t i = 0; i < activeChannels_.size(); ++i) {
        currentActiveChannel_ = activeChannels_[i];
        if (currentActiveChannel_ != nullptr) {
            currentActiveChannel_->handleEvent(pollRetureTime_);
        }
    }
    currentActiveChannel_ = nullptr;
    eventHandling_.store(false, std::memory_order_relaxed);
}

void ZephEventLoop::doPendingFunctors() {
    // Spares an idle loop the lock. One that is queued right now is noticed before the next wait.
    if (!hasPending_.load(std::memory_order_relaxed)) {
        return;
    }
    callingPendingFunctors_.store(true, std::memory_order_relaxed);
    std::vector<Functor> functors = std::move(spareFunctors_);
    {
        const std::lock_guard lock(mutex_);
        functors.swap(pendingFunctors_);
        hasPending_.store(false, std::memory_order_relaxed);
    }
    for (const Functor& functor : functors) {
        functor();
    }
    functors.clear();
    spareFunctors_ = std::move(functors);
    callingPendingFunctors_.store(false, std::memory_order_relaxed);
}
