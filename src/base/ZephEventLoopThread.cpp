#include "base/ZephEventLoopThread.h"

#include "base/ZephEventLoop.h"

#include <utility>

ZephEventLoopThread::ZephEventLoopThread(ThreadInitCallback cb)
    : thread_([this] { threadFunc(); }), callback_(std::move(cb)) {}

ZephEventLoopThread::~ZephEventLoopThread() {
    endLoop();
    {
        const std::lock_guard lock(mutex_);
        exiting_ = true;
    }
    cond_.notify_all();
    thread_.join();
}

void ZephEventLoopThread::endLoop() {
    std::unique_lock lock(mutex_);
    if (loop_ != nullptr) {
        // Queued, since a plain quit() is forgotten by a loop that has not started running.
        loop_->queueInLoop([loop = loop_] { loop->quit(); });
    }
    cond_.wait(lock, [this] { return loop_ == nullptr; });
}

ZephEventLoop* ZephEventLoopThread::startLoop() {
    thread_.start();
    std::unique_lock lock(mutex_);
    // Not loop_: a loop that something in the init callback quits may be over before this looks.
    cond_.wait(lock, [this] { return startedLoop_ != nullptr; });
    return startedLoop_;
}

void ZephEventLoopThread::threadFunc() {
    ZephEventLoop loop;
    if (callback_) {
        callback_(&loop);
    }
    {
        const std::lock_guard lock(mutex_);
        loop_ = &loop;
        startedLoop_ = &loop;
    }
    cond_.notify_all();
    loop.loop();

    // A thread that has called quit() may still be inside it, and others may hold the pointer:
    // the loop stays on this stack until nobody can reach it any more.
    std::unique_lock lock(mutex_);
    loop_ = nullptr;
    cond_.notify_all();
    cond_.wait(lock, [this] { return exiting_; });
}
