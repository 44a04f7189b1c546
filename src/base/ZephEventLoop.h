#pragma once

#include "base/ZephCurrentThread.h"
#include "base/ZephPoller.h"
#include "base/ZephTimerId.h"
#include "base/ZephTimestamp.h"
#include "utils/UniqueFd.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <sys/types.h>

class ZephChannel;
class ZephTimerQueue;

// One thread's loop: waits for descriptors, calls their channels, then runs what other threads have
// queued. Made, run and destroyed on one thread; quit, runInLoop, queueInLoop, wakeup,
// isInLoopThread and the timer operations may be called on any thread, as long as the loop lives.
class ZephEventLoop {
  public:
    using Functor = std::function<void()>;

    // A second loop on one thread works, but getEventLoopOfCurrentThread() goes on answering the
    // first. Ends the process when the kernel has no descriptor for the wake-up, or when
    // "ZEPH_USE_POLL" is set.
    ZephEventLoop();
    ZephEventLoop(const ZephEventLoop&) = delete;
    ZephEventLoop& operator=(const ZephEventLoop&) = delete;

    // Functors and timers that have not run are dropped. Whichever loop it is, the thread has none
    // on record afterwards.
    ~ZephEventLoop();

    // Runs until quit(). Functors that were queued before are run in the first iteration; a quit()
    // from before is forgotten. To end a loop that may not have started yet, queue the quit():
    // `loop->queueInLoop([loop] { loop->quit(); })`.
    void loop();

    // Lets loop() return after the running iteration, pending functors included. An idle loop is
    // woken. The caller makes sure that the loop still lives: see ZephEventLoopThread.
    void quit();

    ZephTimestamp pollReturnTime() const { return pollRetureTime_; }

    // Runs `cb` at once on the loop's thread; from any other thread it is queued.
    void runInLoop(Functor cb);
    // Runs `cb` after the events of the running iteration, or of the next one if functors are
    // being run already. One thread's functors keep their order.
    void queueInLoop(Functor cb);

    // `cb` runs on the loop's thread: at `time` of the wall clock; in `delay` seconds; every
    // `interval` seconds, first in one interval from now. An `interval` that is not above 0 makes
    // it run once.
    ZephTimerId runAt(ZephTimestamp time, std::function<void()> cb);
    ZephTimerId runAfter(double delay, std::function<void()> cb);
    ZephTimerId runEvery(double interval, std::function<void()> cb);
    // A timer that is spent or unknown is no error.
    void cancel(const ZephTimerId& timerId);

    // Makes a poll that waits return.
    void wakeup();

    void updateChannel(ZephChannel* channel);
    void removeChannel(ZephChannel* channel);
    bool hasChannel(ZephChannel* channel);

    bool isInLoopThread() const { return threadId_ == ZephCurrentThread::tid(); }

    // The first loop made on this thread, or null.
    static ZephEventLoop* getEventLoopOfCurrentThread();

  private:
    using ZephChannelList = ZephPoller::ChannelList;

    int beginWait();
    void handleRead();
    void handleActiveChannels();
    void doPendingFunctors();

    // quit_ is set by other threads; the others tell what the loop is doing.
    std::atomic<bool> looping_{false};
    std::atomic<bool> quit_{false};
    std::atomic<bool> eventHandling_{false};
    std::atomic<bool> callingPendingFunctors_{false};
    int64_t iteration_ = 0; // polls that have returned
    const pid_t threadId_;
    ZephTimestamp pollRetureTime_;
    std::unique_ptr<ZephPoller> poller_;
    std::unique_ptr<ZephTimerQueue> timerQueue_;
    UniqueFd wakeupFd_;
    std::unique_ptr<ZephChannel> wakeupChannel_;
    ZephChannelList activeChannels_; // null where a channel was removed before its turn
    ZephChannel* currentActiveChannel_ = nullptr;
    std::vector<Functor> pendingFunctors_; // under mutex_
    std::atomic<bool> hasPending_{false};  // there are pending functors; written under mutex_
    std::atomic<bool> waiting_{false};     // in the poll, or about to be: a functor has to wake it
    std::vector<Functor> spareFunctors_;   // empty; its memory is used for the next batch
    std::mutex mutex_;
};
