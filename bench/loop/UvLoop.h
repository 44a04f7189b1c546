#pragma once

#include "loop/Common.h"

#include <memory>
#include <thread>

#include <uv.h>

namespace uv {

inline void Close(uv_loop_t& loop) {
    uv_walk(
        &loop, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

class Dispatch {
  public:
    explicit Dispatch(const std::vector<UniqueFd>& fds) : polls_(fds.size()) {
        uv_loop_init(&loop_);
        for (size_t i = 0; i < fds.size(); ++i) {
            uv_poll_init(&loop_, &polls_[i], fds[i].get());
            polls_[i].data = this;
            uv_poll_start(&polls_[i], UV_READABLE, [](uv_poll_t* poll, int, int) {
                auto* self = static_cast<Dispatch*>(poll->data);
                if (--self->left_ == 0) {
                    uv_stop(&self->loop_);
                }
            });
        }
    }
    ~Dispatch() { Close(loop_); }
    void RunOnce() {
        left_ = kEventsPerRun;
        uv_run(&loop_, UV_RUN_DEFAULT);
    }

  private:
    uv_loop_t loop_;
    int64_t left_ = 0;
    std::vector<uv_poll_t> polls_;
};

class Post {
  public:
    Post() {
        uv_loop_init(&here_);
        uv_loop_init(&there_);
        uv_async_init(&here_, &pong_, [](uv_async_t* async) {
            auto* self = static_cast<Post*>(async->data);
            if (--self->left_ == 0) {
                uv_stop(&self->here_);
            } else {
                uv_async_send(&self->ping_);
            }
        });
        uv_async_init(&there_, &ping_, [](uv_async_t* async) {
            auto* self = static_cast<Post*>(async->data);
            if (self->left_ == 0) {
                uv_stop(&self->there_);
            } else {
                uv_async_send(&self->pong_);
            }
        });
        pong_.data = ping_.data = this;
        thread_ = std::thread([this] { uv_run(&there_, UV_RUN_DEFAULT); });
    }
    ~Post() {
        uv_async_send(&ping_); // with nothing left it ends the thread's loop
        thread_.join();
        Close(there_);
        Close(here_);
    }
    void RunOnce() {
        left_ = kRoundTripsPerRun;
        uv_async_send(&ping_);
        uv_run(&here_, UV_RUN_DEFAULT);
    }

  private:
    uv_loop_t here_;
    uv_loop_t there_;
    uv_async_t ping_;
    uv_async_t pong_;
    int left_ = 0;
    std::thread thread_;
};

class Timers {
  public:
    explicit Timers(size_t count) : timers_(count) {
        uv_loop_init(&loop_);
        for (uv_timer_t& timer : timers_) {
            uv_timer_init(&loop_, &timer);
            timer.data = this;
        }
    }
    ~Timers() { Close(loop_); }
    void Begin() { uv_update_time(&loop_); }
    void Add(size_t i, Micros deadline) {
        const auto timeout = static_cast<uint64_t>(deadline.count() / kUvTick.count() + 1);
        uv_timer_start(
            &timers_[i], [](uv_timer_t* timer) { static_cast<Timers*>(timer->data)->Fired(); },
            timeout, 0);
    }
    void Cancel(size_t i) { uv_timer_stop(&timers_[i]); }
    void Settle() {}
    double Fire(Clock::time_point due) {
        fired_ = 0;
        SpinUntil(due);
        const Clock::time_point begin = Clock::now();
        while (fired_ < timers_.size()) {
            uv_run(&loop_, UV_RUN_NOWAIT);
        }
        return Seconds(end_ - begin).count();
    }

  private:
    void Fired() {
        if (++fired_ == timers_.size()) {
            end_ = Clock::now();
        }
    }

    uv_loop_t loop_;
    std::vector<uv_timer_t> timers_;
    size_t fired_ = 0;
    Clock::time_point end_;
};

} // namespace uv
