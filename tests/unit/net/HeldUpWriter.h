#pragma once

#include "support/ThreadState.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

// A thread that is held up in a write, because nobody reads what was written before.
class HeldUpWriter {
  public:
    // `write` writes to the socket `fd`, which blocks when it is full of messages of `size` bytes;
    // `read` empties it.
    HeldUpWriter(int fd, size_t size, std::function<int()> write, std::function<void()> read)
        : read_(std::move(read)) {
        const std::vector<uint8_t> message(size);
        while (send(fd, message.data(), size, MSG_DONTWAIT) > 0) {
        }
        std::promise<pid_t> id;
        std::future<pid_t> writer = id.get_future();
        thread_ = std::thread([this, write = std::move(write), id = std::move(id)]() mutable {
            id.set_value(gettid());
            result_ = write();
        });
        const pid_t tid = writer.get();
        int sleeps = 0;
        for (int looks = 0; looks < 1000 && sleeps < 10; ++looks) { // more than a moment
            sleeps = Sleeps(tid) ? sleeps + 1 : 0;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(sleeps, 10) << "the write is not held up";
    }
    ~HeldUpWriter() {
        if (thread_.joinable()) {
            Release();
        }
    }
    HeldUpWriter(const HeldUpWriter&) = delete;
    HeldUpWriter& operator=(const HeldUpWriter&) = delete;

    // Lets the write end; its result.
    int Release() {
        read_();
        thread_.join();
        return result_;
    }

  private:
    std::function<void()> read_;
    int result_ = -1;
    std::thread thread_;
};
