#include "base/ZephThread.h"

#include "base/ZephCurrentThread.h"

#include <semaphore>
#include <utility>

ZephThread::ZephThread(ThreadFunc func) : func_(std::move(func)) {}

ZephThread::~ZephThread() {
    if (started_ && !joined_ && thread_) {
        thread_->detach();
    }
}

void ZephThread::start() {
    if (started_) {
        return;
    }
    started_ = true;
    std::binary_semaphore tidKnown{0};
    // The thread takes a copy of the function: detached, it outlives this object.
    thread_ = std::make_shared<std::thread>([this, &tidKnown, func = func_] {
        tid_ = ZephCurrentThread::tid();
        tidKnown.release();
        func();
    });
    tidKnown.acquire();
}

void ZephThread::join() {
    if (thread_ && !joined_) {
        joined_ = true;
        thread_->join();
    }
}
