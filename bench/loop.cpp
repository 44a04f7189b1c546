// The reactor beside libuv, libevent and asio: the same work for each in one run, so that the ratio
// counts. Rows are named scenario/library/size:
//   dispatch      callbacks of `size` descriptors that are readable all the time
//   post          there and back between two loops on two threads
//   timer_add     timers added, from none up to `size`, with deadlines in pseudo-random order
//   timer_cancel  timers cancelled, from `size` down to none, in pseudo-random order
//   timer_fire    `size` timers fired, all due: from before the poll until the last callback
// The peers get their handles beforehand and only start and stop them; ours are made in the call.

#include "loop/AsioLoop.h"
#include "loop/LibeventLoop.h"
#include "loop/UvLoop.h"
#include "loop/ZephLoop.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>
#include <string>

#include <benchmark/benchmark.h>

namespace {

enum class Step {
    kAdd,
    kCancel,
    kFire
};

constexpr unsigned kSeed = 20240229;
constexpr Micros kFar{3'600'000'000}; // deadlines of timers that are cancelled: within the hour

template <typename Dispatch> void RunDispatch(benchmark::State& state) {
    const std::vector<UniqueFd> fds = ReadableFds(state.range(0));
    Dispatch dispatch(fds);
    for (auto _ : state) {
        dispatch.RunOnce();
    }
    state.SetItemsProcessed(state.iterations() * kEventsPerRun);
}

template <typename Post> void RunPost(benchmark::State& state) {
    Post post;
    for (auto _ : state) {
        post.RunOnce();
    }
    state.SetItemsProcessed(state.iterations() * kRoundTripsPerRun);
}

std::vector<Micros> RandomDeadlines(size_t count, Micros first, Micros spread) {
    std::mt19937 random(kSeed);
    std::uniform_int_distribution<int64_t> within(0, spread.count());
    std::vector<Micros> deadlines(count);
    std::generate(deadlines.begin(), deadlines.end(),
                  [&] { return first + Micros(within(random)); });
    return deadlines;
}

std::vector<size_t> RandomOrder(size_t count) {
    std::vector<size_t> order(count);
    std::iota(order.begin(), order.end(), size_t{0});
    std::shuffle(order.begin(), order.end(), std::mt19937(kSeed));
    return order;
}

// Only the one step is timed; an item is one timer.
template <typename Timers, Step step> void RunTimers(benchmark::State& state) {
    const auto count = static_cast<size_t>(state.range(0));
    // Timers that fire: late enough to be all there before the first is due.
    const Micros first = step == Step::kFire ? Micros(200 + count / 5) : Micros(1'000'000);
    const Micros spread = step == Step::kFire ? Micros(1000 + count / 5) : kFar;
    const std::vector<Micros> deadlines = RandomDeadlines(count, first, spread);
    const std::vector<size_t> order = RandomOrder(count);
    Timers timers(count);
    for (auto _ : state) {
        timers.Begin();
        const Clock::time_point begin = Clock::now();
        for (size_t i = 0; i < count; ++i) {
            timers.Add(i, deadlines[i]);
        }
        const Clock::time_point added = Clock::now();
        if (step == Step::kFire) {
            state.SetIterationTime(timers.Fire(added + first + spread + 2 * kCoarsestTick));
            continue;
        }
        for (const size_t i : order) {
            timers.Cancel(i);
        }
        const Clock::time_point canceled = Clock::now();
        timers.Settle();
        state.SetIterationTime(
            Seconds(step == Step::kAdd ? added - begin : canceled - added).count());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename Timers> void RegisterTimers(const std::string& library) {
    for (const int64_t count : {10, 1'000, 100'000}) {
        const int64_t firings = count == 100'000 ? 20 : 200; // each waits for its deadlines
        benchmark::RegisterBenchmark(("timer_add/" + library).c_str(),
                                     RunTimers<Timers, Step::kAdd>)
            ->Arg(count)
            ->UseManualTime();
        benchmark::RegisterBenchmark(("timer_cancel/" + library).c_str(),
                                     RunTimers<Timers, Step::kCancel>)
            ->Arg(count)
            ->UseManualTime();
        benchmark::RegisterBenchmark(("timer_fire/" + library).c_str(),
                                     RunTimers<Timers, Step::kFire>)
            ->Arg(count)
            ->UseManualTime()
            ->Iterations(firings);
    }
}

template <typename Dispatch> void RegisterDispatch(const std::string& library) {
    for (const int64_t count : {1, 100, 1'000}) {
        benchmark::RegisterBenchmark(("dispatch/" + library).c_str(), RunDispatch<Dispatch>)
            ->Arg(count)
            ->UseRealTime();
    }
}

template <typename Post> void RegisterPost(const std::string& library) {
    benchmark::RegisterBenchmark(("post/" + library).c_str(), RunPost<Post>)->UseRealTime();
}

} // namespace

int main(int argc, char** argv) {
    RegisterDispatch<zeph::Dispatch>("zeph");
    RegisterDispatch<uv::Dispatch>("libuv");
    RegisterDispatch<libevent::Dispatch>("libevent");
    RegisterDispatch<asio_loop::Dispatch>("asio");
    RegisterTimers<zeph::Timers>("zeph");
    RegisterTimers<uv::Timers>("libuv");
    RegisterTimers<libevent::Timers>("libevent");
    RegisterTimers<asio_loop::Timers>("asio");
    RegisterPost<zeph::Post>("zeph");
    RegisterPost<uv::Post>("libuv");
    RegisterPost<libevent::Post>("libevent");
    RegisterPost<asio_loop::Post>("asio");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
