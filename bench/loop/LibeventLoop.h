#pragma once

#include "loop/Common.h"

#include <thread>

#include <event2/event.h>
#include <event2/event_struct.h>
#include <event2/thread.h>

namespace libevent {

// A base for one thread: without locks it is at its fastest.
inline event_base* NewUnlockedBase() {
    event_config* config = event_config_new();
    event_config_set_flag(config, EVENT_BASE_FLAG_NOLOCK);
    event_base* base = event_base_new_with_config(config);
    event_config_free(config);
    return base;
}

class Dispatch {
  public:
    explicit Dispatch(const std::vector<UniqueFd>& fds)
        : base_(NewUnlockedBase()), events_(fds.size()) {
        for (size_t i = 0; i < fds.size(); ++i) {
            const auto callback = [](evutil_socket_t, short, void* arg) {
                auto* self = static_cast<Dispatch*>(arg);
                if (--self->left_ == 0) {
                    event_base_loopbreak(self->base_);
                }
            };
            event_assign(&events_[i], base_, fds[i].get(), EV_READ | EV_PERSIST, callback, this);
            event_add(&events_[i], nullptr);
        }
    }
    ~Dispatch() {
        for (event& one : events_) {
            event_del(&one);
        }
        event_base_free(base_);
    }
    void RunOnce() {
        left_ = kEventsPerRun;
        event_base_dispatch(base_);
    }

  private:
    event_base* base_;
    int64_t left_ = 0;
    std::vector<event> events_;
};

class Post {
  public:
    Post() {
        evthread_use_pthreads();
        here_ = event_base_new();
        there_ = event_base_new();
        event_assign(
            &pong_, here_, -1, EV_PERSIST,
            [](evutil_socket_t, short, void* arg) {
                auto* self = static_cast<Post*>(arg);
                if (--self->left_ == 0) {
                    event_base_loopbreak(self->here_);
                } else {
                    event_active(&self->ping_, 0, 0);
                }
            },
            this);
        event_assign(
            &ping_, there_, -1, EV_PERSIST,
            [](evutil_socket_t, short, void* arg) {
                event_active(&static_cast<Post*>(arg)->pong_, 0, 0);
            },
            this);
        thread_ = std::thread([this] { event_base_loop(there_, EVLOOP_NO_EXIT_ON_EMPTY); });
    }
    ~Post() {
        event_base_loopbreak(there_);
        thread_.join();
        event_base_free(there_);
        event_base_free(here_);
    }
    void RunOnce() {
        left_ = kRoundTripsPerRun;
        event_active(&ping_, 0, 0);
        event_base_loop(here_, EVLOOP_NO_EXIT_ON_EMPTY);
    }

  private:
    event_base* here_;
    event_base* there_;
    event ping_;
    event pong_;
    int left_ = 0;
    std::thread thread_;
};

class Timers {
  public:
    explicit Timers(size_t count) : base_(NewUnlockedBase()), timers_(count) {
        for (event& timer : timers_) {
            evtimer_assign(
                &timer, base_,
                [](evutil_socket_t, short, void* arg) { static_cast<Timers*>(arg)->Fired(); },
                this);
        }
    }
    ~Timers() { event_base_free(base_); }
    void Begin() {}
    void Add(size_t i, Micros deadline) {
        constexpr int64_t kMicrosPerSecond = 1'000'000;
        const timeval timeout{deadline.count() / kMicrosPerSecond,
                              deadline.count() % kMicrosPerSecond};
        evtimer_add(&timers_[i], &timeout);
    }
    void Cancel(size_t i) { evtimer_del(&timers_[i]); }
    void Settle() {}
    double Fire(Clock::time_point due) {
        fired_ = 0;
        SpinUntil(due);
        const Clock::time_point begin = Clock::now();
        while (fired_ < timers_.size()) {
            event_base_loop(base_, EVLOOP_NONBLOCK);
        }
        return Seconds(end_ - begin).count();
    }

  private:
    void Fired() {
        if (++fired_ == timers_.size()) {
            end_ = Clock::now();
        }
    }

    event_base* base_;
    std::vector<event> timers_;
    size_t fired_ = 0;
    Clock::time_point end_;
};

} // namespace libevent
