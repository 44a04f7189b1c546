#pragma once

#include "loop/Common.h"

#include <asio.hpp>
#include <thread>

namespace asio_loop {

constexpr int kOneThread = 1; // lets the library leave out what several threads would need

class Dispatch {
  public:
    explicit Dispatch(const std::vector<UniqueFd>& fds) {
        for (const UniqueFd& fd : fds) {
            descriptors_.emplace_back(io_, fd.get());
        }
        for (size_t i = 0; i < fds.size(); ++i) {
            Wait(i);
        }
    }
    ~Dispatch() {
        for (asio::posix::stream_descriptor& descriptor : descriptors_) {
            descriptor.release(); // it is not this class's to close
        }
    }
    void RunOnce() {
        left_ = kEventsPerRun;
        io_.restart();
        io_.run();
    }

  private:
    void Wait(size_t i) {
        descriptors_[i].async_wait(asio::posix::stream_descriptor::wait_read,
                                   [this, i](const asio::error_code& error) {
                                       if (error) {
                                           return;
                                       }
                                       if (--left_ == 0) {
                                           io_.stop();
                                       }
                                       Wait(i);
                                   });
    }

    asio::io_context io_{kOneThread};
    int64_t left_ = 0;
    std::vector<asio::posix::stream_descriptor> descriptors_;
};

class Post {
  public:
    Post() : thread_([this] { there_.run(); }) {
        // Without a descriptor to watch it would wait for posts alone, and not be a reactor.
        hereNever_.async_wait(asio::posix::stream_descriptor::wait_read, [](asio::error_code) {});
        thereNever_.async_wait(asio::posix::stream_descriptor::wait_read, [](asio::error_code) {});
    }
    ~Post() {
        there_.stop();
        thread_.join();
    }
    void RunOnce() {
        left_ = kRoundTripsPerRun;
        Ping();
        here_.restart();
        here_.run();
    }

  private:
    void Ping() {
        asio::post(there_, [this] { asio::post(here_, [this] { Pong(); }); });
    }
    void Pong() {
        if (--left_ == 0) {
            here_.stop();
        } else {
            Ping();
        }
    }

    asio::io_context here_{kOneThread};
    asio::io_context there_{kOneThread};
    asio::executor_work_guard<asio::io_context::executor_type> hereWork_{here_.get_executor()};
    asio::executor_work_guard<asio::io_context::executor_type> thereWork_{there_.get_executor()};
    asio::posix::stream_descriptor hereNever_{here_, eventfd(0, EFD_CLOEXEC)};
    asio::posix::stream_descriptor thereNever_{there_, eventfd(0, EFD_CLOEXEC)};
    int left_ = 0;
    std::thread thread_;
};

class Timers {
  public:
    explicit Timers(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            timers_.emplace_back(io_);
        }
    }
    void Begin() { start_ = Clock::now(); }
    void Add(size_t i, Micros deadline) {
        timers_[i].expires_at(start_ + deadline);
        timers_[i].async_wait([this](const asio::error_code& error) {
            if (!error) {
                Fired();
            }
        });
    }
    void Cancel(size_t i) { timers_[i].cancel(); }
    void Settle() { // the handlers of what was cancelled
        io_.restart();
        io_.poll();
    }
    double Fire(Clock::time_point due) {
        fired_ = 0;
        SpinUntil(due);
        const Clock::time_point begin = Clock::now();
        io_.restart();
        while (fired_ < timers_.size()) {
            io_.poll();
        }
        return Seconds(end_ - begin).count();
    }

  private:
    void Fired() {
        if (++fired_ == timers_.size()) {
            end_ = Clock::now();
        }
    }

    asio::io_context io_{kOneThread};
    std::vector<asio::steady_timer> timers_;
    Clock::time_point start_;
    size_t fired_ = 0;
    Clock::time_point end_;
};

} // namespace asio_loop
