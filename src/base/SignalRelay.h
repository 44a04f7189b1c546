#pragma once

#include "utils/UniqueFd.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

// Carries signals from the handler, where next to nothing may be called, to a thread that may do
// anything. A signal that is posted is never lost; the same signal posted again before Dispatch()
// counts once, as pending signals do.
class SignalRelay {
  public:
    static SignalRelay& GetInstance();
    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    // What Dispatch() calls. True asks the dispatching thread to end the program's work.
    using Action = std::function<bool(int signal)>;
    void SetAction(Action action) { action_ = std::move(action); }

    // Async-signal-safe, any thread; `signal` is 1..31. GetInstance() has been called before.
    void Post(int signal) noexcept;

    // Runs the action for every signal posted so far, lowest number first, on this thread. True
    // when one of them asked for the end. One thread dispatches at a time.
    bool Dispatch();

    // True while signals wait for Dispatch().
    bool Waits() const { return pending_ != 0; }

    // Readable while signals wait for Dispatch(). Owned by the relay.
    int Fd() const { return wakeup_.get(); }

  private:
    SignalRelay();

    static_assert(std::atomic<uint32_t>::is_always_lock_free, "a signal handler must not lock");

    std::atomic<uint32_t> pending_{0}; // bit n: signal n
    UniqueFd wakeup_;
    Action action_;
};
