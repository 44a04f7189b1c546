#include "base/ZephEventLoopThreadPool.h"

ZephEventLoopThreadPool::ZephEventLoopThreadPool(ZephEventLoop* baseLoop, int numThreads)
    : baseLoop_(baseLoop), numThreads_(numThreads) {}

ZephEventLoopThreadPool::~ZephEventLoopThreadPool() {
    // All loops end before the first is destroyed: what runs on one may post to another.
    for (const auto& thread : threads_) {
        thread->endLoop();
    }
}

void ZephEventLoopThreadPool::start(const ThreadInitCallback& cb) {
    started_ = true;
    for (int i = 0; i < numThreads_; ++i) {
        threads_.push_back(std::make_shared<ZephEventLoopThread>(cb));
        ZephEventLoop* loop = threads_.back()->startLoop();
        const std::lock_guard lock(mutex_);
        loops_.push_back(loop);
    }
    if (numThreads_ == 0 && cb) {
        cb(baseLoop_);
    }
}

ZephEventLoop* ZephEventLoopThreadPool::getNextLoop() {
    if (loops_.empty()) {
        return baseLoop_;
    }
    ZephEventLoop* loop = loops_[next_];
    next_ = (next_ + 1) % loops_.size();
    return loop;
}

std::vector<ZephEventLoop*> ZephEventLoopThreadPool::GetLoops() const {
    const std::lock_guard lock(mutex_);
    return loops_;
}
