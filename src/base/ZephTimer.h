#pragma once

#include "base/ZephTimestamp.h"

#include <cstdint>
#include <functional>
#include <utility>

// What to call, and when. Lives on its queue's thread, after the thread that asked for it has made
// it. Fills one cache line, so that a run over many timers touches one each.
class alignas(64) ZephTimer {
  public:
    ZephTimer() : repeat_(false) {} // idle, in the pool
    // `interval`: seconds between firings; a timer whose interval is not above 0 fires once.
    ZephTimer(std::function<void()>&& cb, ZephTimestamp when, double interval, int64_t sequence)
        : callback_(std::move(cb)),
          expiration_(when),
          interval_(interval),
          repeat_(interval > 0.0),
          id_(sequence) {}
    ZephTimer(const ZephTimer&) = delete;
    ZephTimer& operator=(const ZephTimer&) = delete;

    void run() const {
        if (callback_) {
            callback_();
        }
    }

    ZephTimestamp GetExpiration() const { return expiration_; }
    bool Repeat() const { return repeat_; }
    int64_t GetSequence() const { return id_; }

    // The next expiration: one interval from `now`, so that a late run delays all later ones and
    // none is made up for. Of a timer that fires once: invalid.
    void restart(ZephTimestamp now) {
        expiration_ = repeat_ ? addTime(now, interval_) : ZephTimestamp::invalid();
    }

    // Not while run() is running.
    void ResetCallBack(std::function<void()> cb) { callback_ = std::move(cb); }
    // Releases what the callback holds; a run() from now on does nothing.
    void dropCallback() { callback_ = nullptr; }
    // For the next restart(): the pending expiration stands, and a timer that fires once stays so.
    void SetInterval(double interval) { interval_ = interval; }

  private:
    std::function<void()> callback_;
    ZephTimestamp expiration_;
    double interval_ = 0.0;
    const bool repeat_;
    int64_t id_ = 0;
};
