#pragma once

#include <cstdint>
#include <functional>

class ZephTimer;
class ZephTimerQueue;

// Names one timer of one queue. A value; its operations may be called on any thread as long as the
// timer's loop lives.
class ZephTimerId {
  public:
    ZephTimerId() = default; // no timer

    int GetSeq() const { return static_cast<int>(sequence_); }
    // For comparison. The timer lives on its loop's thread and may be spent.
    ZephTimer* GetTimer() const { return timer_; }

    // Replaces what the timer calls, for all later firings; what runs already, ends first.
    // Replaces its interval, in seconds, from the firing after the next one on.
    // Both take effect on the loop's thread: at once there, and in order with functors queued from
    // any other. A timer that is spent stays spent.
    void ResetCallback(std::function<void()> cb) const;
    void SetInterval(double interval) const;

  private:
    friend class ZephTimerQueue;

    ZephTimerId(ZephTimer* timer, int64_t sequence, ZephTimerQueue* queue, uint32_t slot)
        : timer_(timer), sequence_(sequence), queue_(queue), slot_(slot) {}

    ZephTimer* timer_ = nullptr;
    int64_t sequence_ = 0;
    // Where the queue finds the timer without a look at timer_, which may be spent.
    ZephTimerQueue* queue_ = nullptr;
    uint32_t slot_ = 0;
};
