#pragma once

#include "base/ZephEventLoopThread.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

class ZephEventLoop;

// A fixed number of loops on threads of their own, dealt out in rotation. Lives on the thread of
// the base loop; GetLoops() may be called on any thread. The loops it hands out live as long as it
// does, running or quit.
class ZephEventLoopThreadPool {
  public:
    using ThreadInitCallback = ZephEventLoopThread::ThreadInitCallback;

    // `baseLoop`: what getNextLoop() answers while there is no other. Starts nothing.
    ZephEventLoopThreadPool(ZephEventLoop* baseLoop, int numThreads);
    ZephEventLoopThreadPool(const ZephEventLoopThreadPool&) = delete;
    ZephEventLoopThreadPool& operator=(const ZephEventLoopThreadPool&) = delete;
    ~ZephEventLoopThreadPool(); // ends and joins one thread after the other

    // Once. Starts the threads one after the other, each fully up before the next; `cb` is called
    // on each with its loop. With no threads it is called here with the base loop.
    void start(const ThreadInitCallback& cb = {});

    ZephEventLoop* getNextLoop();
    std::vector<ZephEventLoop*> GetLoops() const; // a copy, in the order of their start

    bool started() const { return started_; }
    const std::string& name() const { return name_; }

  private:
    ZephEventLoop* baseLoop_;
    std::string name_ = "ZephEventLoopThreadPool";
    bool started_ = false;
    int numThreads_;
    size_t next_ = 0;
    std::vector<std::shared_ptr<ZephEventLoopThread>> threads_;
    std::vector<ZephEventLoop*> loops_; // written by start() only, under mutex_
    mutable std::mutex mutex_;          // lets an exit ask for the loops while they are starting
};
