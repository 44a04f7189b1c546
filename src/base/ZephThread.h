#pragma once

#include <functional>
#include <memory>
#include <thread>

#include <sys/types.h>

// A thread whose kernel id is known once it has been started. Used by one thread at a time.
class ZephThread {
  public:
    using ThreadFunc = std::function<void()>;

    explicit ZephThread(ThreadFunc func);
    ZephThread(const ZephThread&) = delete;
    ZephThread& operator=(const ZephThread&) = delete;
    ~ZephThread(); // detaches what was started and not joined

    // Once. Returns when tid() is valid. Throws std::system_error when there is no thread to be
    // had.
    void start();

    // Waits for the end of the function. Of a thread that does not run, there is nothing to wait
    // for.
    void join();

    bool started() const { return started_; }
    pid_t tid() const { return tid_; } // 0 until started

  private:
    bool started_ = false;
    bool joined_ = false;
    std::shared_ptr<std::thread> thread_;
    pid_t tid_ = 0;
    ThreadFunc func_;
};
