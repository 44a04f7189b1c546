#pragma once

#include "base/ZephChannel.h"
#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThread.h"
#include "loop/Common.h"

#include <memory>

#include <fcntl.h>
#include <unistd.h>

namespace zeph {

// A loop says on standard output that it starts; here that would run into the table.
inline void RunQuietly(ZephEventLoop& loop) {
    static const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    static const int console = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(null, STDOUT_FILENO);
    loop.loop();
    dup2(console, STDOUT_FILENO);
}

class Dispatch {
  public:
    explicit Dispatch(const std::vector<UniqueFd>& fds) {
        for (const UniqueFd& fd : fds) {
            channels_.push_back(std::make_unique<ZephChannel>(&loop_, fd.get()));
            channels_.back()->setReadCallback([this](ZephTimestamp) {
                if (--left_ == 0) {
                    loop_.quit();
                }
            });
            channels_.back()->enableReading();
        }
    }
    ~Dispatch() {
        for (const auto& channel : channels_) {
            channel->remove();
        }
    }
    void RunOnce() {
        left_ = kEventsPerRun;
        RunQuietly(loop_);
    }

  private:
    ZephEventLoop loop_;
    int64_t left_ = 0;
    std::vector<std::unique_ptr<ZephChannel>> channels_;
};

class Post {
  public:
    Post() : there_(thread_.startLoop()) {}
    void RunOnce() {
        left_ = kRoundTripsPerRun;
        Ping();
        RunQuietly(here_);
    }

  private:
    void Ping() {
        there_->queueInLoop([this] { here_.queueInLoop([this] { Pong(); }); });
    }
    void Pong() {
        if (--left_ == 0) {
            here_.quit();
        } else {
            Ping();
        }
    }

    ZephEventLoop here_;
    int left_ = 0;
    ZephEventLoopThread thread_;
    ZephEventLoop* there_;
};

class Timers {
  public:
    explicit Timers(size_t count) : ids_(count) {}
    void Begin() { start_ = ZephTimestamp::now().microSecondsSinceEpoch(); }
    void Add(size_t i, Micros deadline) {
        ids_[i] = loop_.runAt(ZephTimestamp(start_ + deadline.count()), [this] {
            if (++fired_ == ids_.size()) {
                end_ = Clock::now();
                loop_.quit();
            }
        });
    }
    void Cancel(size_t i) { loop_.cancel(ids_[i]); }
    void Settle() {}
    double Fire(Clock::time_point due) {
        fired_ = 0;
        // The loop arms its descriptor, is woken, and finds all timers due at its next poll.
        loop_.queueInLoop([this, due] {
            SpinUntil(due);
            begin_ = Clock::now();
        });
        loop_.wakeup();
        RunQuietly(loop_);
        return Seconds(end_ - begin_).count();
    }

  private:
    ZephEventLoop loop_;
    std::vector<ZephTimerId> ids_;
    int64_t start_ = 0;
    size_t fired_ = 0;
    Clock::time_point begin_;
    Clock::time_point end_;
};

} // namespace zeph
