// The reactor beside libuv, libevent and asio: the same work for each, in one run, so that the
// ratio counts. Rows are named scenario/library/size:
//   dispatch       one callback of `size` descriptors that are readable all the time
//   post           there and back between two loops on two threads
//   timer_add      a timer added while `size` are filled in, in pseudo-random order of deadlines
//   timer_cancel   a timer cancelled while the same `size` are taken out, in pseudo-random order
//   timer_fire     a timer fired when `size` of them are due
// The peers get their handles beforehand and only start and stop them; ours are made in the call.

#include "base/ZephChannel.h"
#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThread.h"

#include <algorithm>
#include <asio.hpp>
#include <chrono>
#include <memory>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <uv.h>

#include <benchmark/benchmark.h>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <event2/thread.h>

namespace {

using Clock = std::chrono::steady_clock;
using Micros = std::chrono::microseconds;

constexpr int64_t kEventsPerRun = 20'000; // dispatched between two readings of the clock
constexpr int kRoundTripsPerRun = 1'000;

// A loop says on standard output that it starts; here that would run into the table.
void RunQuietly(ZephEventLoop& loop) {
    static const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    static const int console = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(null, STDOUT_FILENO);
    loop.loop();
    dup2(console, STDOUT_FILENO);
}

void WaitUntil(Clock::time_point time) {
    while (Clock::now() <= time) {
    }
}

// Descriptors that are readable and stay so.
class ReadableFds {
  public:
    explicit ReadableFds(int64_t count) {
        for (int64_t i = 0; i < count; ++i) {
            fds_.emplace_back(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
        }
    }
    auto begin() const { return fds_.begin(); }
    auto end() const { return fds_.end(); }

  private:
    std::vector<UniqueFd> fds_;
};

// ---- dispatch: RunOnce() returns after kEventsPerRun callbacks.

class ZephDispatch {
  public:
    explicit ZephDispatch(const ReadableFds& fds) {
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
    ~ZephDispatch() {
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

class UvDispatch {
  public:
    explicit UvDispatch(const ReadableFds& fds) {
        uv_loop_init(&loop_);
        for (const UniqueFd& fd : fds) {
            polls_.push_back(std::make_unique<uv_poll_t>());
            uv_poll_init(&loop_, polls_.back().get(), fd.get());
            polls_.back()->data = this;
            uv_poll_start(polls_.back().get(), UV_READABLE, [](uv_poll_t* poll, int, int) {
                auto* self = static_cast<UvDispatch*>(poll->data);
                if (--self->left_ == 0) {
                    uv_stop(&self->loop_);
                }
            });
        }
    }
    ~UvDispatch() {
        for (const auto& poll : polls_) {
            uv_close(reinterpret_cast<uv_handle_t*>(poll.get()), nullptr);
        }
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }
    void RunOnce() {
        left_ = kEventsPerRun;
        uv_run(&loop_, UV_RUN_DEFAULT);
    }

  private:
    uv_loop_t loop_;
    int64_t left_ = 0;
    std::vector<std::unique_ptr<uv_poll_t>> polls_;
};

// A base for one thread: without locks it is at its fastest.
event_base* NewUnlockedBase() {
    event_config* config = event_config_new();
    event_config_set_flag(config, EVENT_BASE_FLAG_NOLOCK);
    event_base* base = event_base_new_with_config(config);
    event_config_free(config);
    return base;
}

class EventDispatch {
  public:
    explicit EventDispatch(const ReadableFds& fds) : base_(NewUnlockedBase()) {
        for (const UniqueFd& fd : fds) {
            events_.push_back(event_new(
                base_, fd.get(), EV_READ | EV_PERSIST,
                [](evutil_socket_t, short, void* arg) {
                    auto* self = static_cast<EventDispatch*>(arg);
                    if (--self->left_ == 0) {
                        event_base_loopbreak(self->base_);
                    }
                },
                this));
            event_add(events_.back(), nullptr);
        }
    }
    ~EventDispatch() {
        std::for_each(events_.begin(), events_.end(), event_free);
        event_base_free(base_);
    }
    void RunOnce() {
        left_ = kEventsPerRun;
        event_base_dispatch(base_);
    }

  private:
    event_base* base_;
    int64_t left_ = 0;
    std::vector<event*> events_;
};

class AsioDispatch {
  public:
    explicit AsioDispatch(const ReadableFds& fds) {
        for (const UniqueFd& fd : fds) {
            descriptors_.emplace_back(io_, fd.get());
            Wait(descriptors_.size() - 1);
        }
    }
    ~AsioDispatch() {
        for (asio::posix::stream_descriptor& descriptor : descriptors_) {
            descriptor.release();
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

    asio::io_context io_{1};
    int64_t left_ = 0;
    std::vector<asio::posix::stream_descriptor> descriptors_;
};

template <typename Dispatch> void RunDispatch(benchmark::State& state) {
    const ReadableFds fds(state.range(0));
    Dispatch dispatch(fds);
    for (auto _ : state) {
        dispatch.RunOnce();
    }
    state.SetItemsProcessed(state.iterations() * kEventsPerRun);
}
