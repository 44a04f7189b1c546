#pragma once

#include "base/ActiveTimerSet.h"
#include "base/TimerList.h"
#include "base/ZephChannel.h"
#include "base/ZephTimerId.h"
#include "base/ZephTimerPool.h"
#include "base/ZephTimestamp.h"
#include "utils/IdGenerator.h"
#include "utils/UniqueFd.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

class ZephEventLoop;

// All timers of one loop, on one timer descriptor that is armed for the earliest. Lives on its
// loop's thread; addTimer, cancel and the changes may be called on any thread.
class ZephTimerQueue {
  public:
    explicit ZephTimerQueue(ZephEventLoop* loop);
    ZephTimerQueue(const ZephTimerQueue&) = delete;
    ZephTimerQueue& operator=(const ZephTimerQueue&) = delete;
    ~ZephTimerQueue(); // ends all timers without running them

    // `cb` runs at `when`, and then every `interval` seconds if that is above 0. A time that has
    // passed, or is closer than 100 us, is taken as 100 us from the loop's next wait. Timers that
    // are due together run in the order of their times, and at one time in the order of their
    // addresses.
    ZephTimerId addTimer(std::function<void()>&& cb, ZephTimestamp when, double interval);

    // A timer that is running is not started again; one that is due in the same run still runs in
    // it. An id that is spent, of another queue, or of no timer, is ignored.
    void cancel(const ZephTimerId& timerId);

    // See ZephTimerId.
    void resetCallback(const ZephTimerId& timerId, std::function<void()> cb);
    void setInterval(const ZephTimerId& timerId, double interval);

    // Arms the descriptor for a first timer that came since. The loop calls this before it waits,
    // so that any number of timers added in one iteration costs one system call, or none.
    void arm() {
        // A first timer that was cancelled leaves the descriptor armed too early: that wake-up
        // finds nothing due, which costs less than arming anew at each cancel.
        // A repetition that has come to a time before all times is not armed for; a timer that was
        // added with such a time is.
        const bool isDue =
            firstIsNew_ || (fired_ && !timers_.empty() && timers_.firstExpiration().valid());
        if (isDue && !timers_.empty()) {
            armForFirst();
        } else if (fired_) {
            readTimerfd();
        }
    }

    // Releases what the timers' callbacks hold. For the end of the loop, while both still stand.
    void dropCallbacks() { pool_.dropCallbacks(); }

  private:
    using Slot = ZephTimerPool::Slot;

    void armForFirst();
    void readTimerfd();
    void addTimerInLoop(Slot slot, int64_t sequence, ZephTimestamp expiration) {
        firstIsNew_ = firstIsNew_ || timers_.empty() || expiration < timers_.firstExpiration();
        timers_.insert(expiration, slot);
        activeTimers_.insert(slot, sequence);
    }
    void cancelInLoop(const ZephTimerId& timerId);
    void resetCallbackInLoop(const ZephTimerId& timerId, std::function<void()> cb);
    void setIntervalInLoop(const ZephTimerId& timerId, double interval);
    ActiveTimerSet::State find(const ZephTimerId& timerId) const;
    ZephTimer* findTimer(const ZephTimerId& timerId) const;

    void handleRead();
    void getExpired(ZephTimestamp now, std::vector<Slot>& expired);
    void runExpired(const std::vector<Slot>& expired);
    void reset(const std::vector<Slot>& expired, ZephTimestamp now);

    ZephEventLoop* loop_;
    const UniqueFd timerfd_;
    ZephChannel timerfdChannel_;
    ZephTimerPool pool_;
    TimerList timers_{pool_};     // the active timers, and no others
    ActiveTimerSet activeTimers_; // these, and during a run also those it took out
    ZephTimer* runningTimer_ = nullptr;
    std::function<void()> nextCallback_; // of runningTimer_, for when it has returned
    bool hasNextCallback_ = false;
    bool fired_ = false;             // the descriptor is readable until it is armed anew or read
    bool firstIsNew_ = false;        // a timer became the first since the descriptor was armed
    std::vector<Slot> spareExpired_; // empty; its memory is used for the next run
    std::shared_ptr<IdGenerator> idGenerator_;
};
