#pragma once

#include "base/ZephThread.h"

#include <condition_variable>
#include <functional>
#include <mutex>

class ZephEventLoop;

// One loop on a thread of its own. Used by one thread at a time; the loop it hands out has its own
// rules.
//
// The loop object lives until this object is destroyed, even when it was quit long before. So
// whoever makes sure that this object lives may quit the loop, and post to it, at any moment.
class ZephEventLoopThread {
  public:
    using ThreadInitCallback = std::function<void(ZephEventLoop*)>;

    // `cb` is called on the new thread before the loop runs; it may be empty.
    explicit ZephEventLoopThread(ThreadInitCallback cb = {});
    ZephEventLoopThread(const ZephEventLoopThread&) = delete;
    ZephEventLoopThread& operator=(const ZephEventLoopThread&) = delete;

    // Ends the loop, also one that has not reached ZephEventLoop::loop() yet, and joins the thread.
    // Functors queued before are run first.
    ~ZephEventLoopThread();

    // Once. Returns the loop as soon as it takes functors; it may not have entered loop() yet.
    // Throws std::system_error when there is no thread to be had.
    ZephEventLoop* startLoop();

    // Ends the loop and waits until it has; the object stays for those who still post to it.
    void endLoop();

  private:
    void threadFunc();

    ZephEventLoop* loop_ = nullptr; // null while no loop runs; under mutex_
    bool exiting_ = false;          // under mutex_
    ZephThread thread_;
    std::mutex mutex_;
    std::condition_variable cond_;
    ThreadInitCallback callback_;
    ZephEventLoop* startedLoop_ =
        nullptr; // as loop_, but stays when the loop has quit; under mutex_
};
