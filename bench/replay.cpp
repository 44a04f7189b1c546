// The ring of the CAN replay beside a queue of the same kind, size and element from Boost.

#include "modules/Kfifo.h"

#include <atomic>
#include <thread>

#include <benchmark/benchmark.h>
#include <boost/lockfree/spsc_queue.hpp>

namespace {

using Boost = boost::lockfree::spsc_queue<ReplayCanFrameType, boost::lockfree::capacity<511>>;

// One thread, a frame in and out again with half a ring of others between: what the ring itself
// costs each frame.
template <typename Queue> void PushPop(benchmark::State& state) {
    Queue queue;
    ReplayCanFrameType frame{};
    for (int i = 0; i < 256; ++i) {
        queue.push(frame);
    }
    uint32_t lost = 0;
    for (auto _ : state) {
        frame.intervalTime++;
        lost += !queue.push(frame);
        lost += !queue.pop(frame);
        benchmark::DoNotOptimize(frame);
    }
    if (lost != 0) {
        state.SkipWithError("a frame was lost");
    }
}
BENCHMARK(PushPop<Kfifo>)->Name("push_pop/ours");
BENCHMARK(PushPop<Boost>)->Name("push_pop/boost_spsc_queue");

// From one thread to another, both as fast as they can.
template <typename Queue> void HandOver(benchmark::State& state) {
    Queue queue;
    std::atomic<bool> done{false};
    uint64_t taken = 0;
    bool ordered = true;
    std::thread reader([&] {
        ReplayCanFrameType frame;
        const auto drain = [&] {
            while (queue.pop(frame)) {
                ordered &= frame.intervalTime == static_cast<uint32_t>(taken++);
            }
        };
        while (!done.load(std::memory_order_acquire)) {
            drain();
        }
        drain();
    });
    ReplayCanFrameType frame{};
    for (auto _ : state) {
        while (!queue.push(frame)) {
        }
        frame.intervalTime++;
    }
    done.store(true, std::memory_order_release);
    reader.join();
    if (!ordered || taken != static_cast<uint64_t>(state.iterations())) {
        state.SkipWithError("a frame was lost");
    }
}
BENCHMARK(HandOver<Kfifo>)->Name("hand_over/ours")->UseRealTime();
BENCHMARK(HandOver<Boost>)->Name("hand_over/boost_spsc_queue")->UseRealTime();

} // namespace

BENCHMARK_MAIN();
