// Periodic and burst traffic: planning beside a search over an ordered map, frame times, one
// message to the broadcast manager, and a burst beside bare writes.

#include "can/MapPlanner.h"
#include "doubles/CanSockets.h"
#include "doubles/MemoryBoard.h"
#include "net/BcmMessage.h"
#include "net/CanSend.h"
#include "net/planner/CanFrameTime.h"
#include "net/planner/OffsetPlanner.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include <benchmark/benchmark.h>

namespace {

using Task = net::OffsetPlanner::Task;
using Tasks = std::vector<Task>;

// Numbers below a limit, the same in each run.
class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t operator()(size_t limit) { return static_cast<uint32_t>(engine_() % limit); }

  private:
    std::mt19937 engine_;
};

constexpr uint32_t kPeriodsMs[] = {5, 10, 20, 25, 40, 50, 100, 200, 500, 1000};
constexpr net::CanBitRates kRates{500000, 2000000};

// Tasks of mixed periods and lengths, as a host asks for them. Under a fixed seed.
Tasks MixedTasks(size_t count, Random& random, uint32_t firstId = 0) {
    Tasks tasks(count);
    for (size_t i = 0; i < count; ++i) {
        tasks[i].id = firstId + static_cast<uint32_t>(i);
        tasks[i].period_us = kPeriodsMs[random(std::size(kPeriodsMs))] * 1000;
        tasks[i].transmission_time_us = net::calculateFrameTransmissionTime(
            kRates, net::CAN_Task, net::STANDARD, static_cast<int>(random(9)));
    }
    return tasks;
}

void Plan(net::OffsetPlanner& planner, Tasks& tasks) {
    planner.Plan(
        tasks, [] { return uint64_t{1000000}; }, [](const Task&) {});
}
void Plan(MapPlanner& planner, Tasks& tasks) {
    planner.Plan(tasks);
}

// Ours and the map must agree in every offset: sets of all sizes, repeats, removals, odd periods.
void RequireIdenticalPlans() {
    constexpr int kSets = 4000;
    Random random(1);
    size_t tasks = 0;
    for (int set = 0; set < kSets; ++set) {
        net::OffsetPlanner ours;
        MapPlanner map;
        for (int batch = 0; batch < 3; ++batch) {
            Tasks a = MixedTasks(1 + random(40), random, random(30));
            for (Task& task : a) {
                if (random(4) == 0) {
                    task.period_us = (1 + random(300)) * 1000;
                    task.transmission_time_us = 1 + random(5000);
                }
                if (random(3) == 0) {
                    ours.Remove(task.id);
                    map.Remove(task.id);
                }
            }
            Tasks b = a;
            Plan(ours, a);
            Plan(map, b);
            for (size_t i = 0; i < a.size(); ++i) {
                if (a[i].id != b[i].id || a[i].offset_us != b[i].offset_us ||
                    a[i].conflicts != b[i].conflicts) {
                    std::fprintf(stderr, "set %d, batch %d, task %zu: the plans differ\n", set,
                                 batch, i);
                    std::exit(1);
                }
            }
            tasks += a.size();
        }
    }
    std::printf("identical offsets and conflicts: %zu tasks in %d random sets\n", tasks, kSets);
}

// Argument 0: tasks in the batch; 1: tasks that lie on the timeline before it.
template <typename Planner> void BM_Plan(benchmark::State& state) {
    Random random(2);
    Planner before;
    Tasks first = MixedTasks(static_cast<size_t>(state.range(1)), random, 1000);
    Plan(before, first);
    const Tasks batch = MixedTasks(static_cast<size_t>(state.range(0)), random);
    for (auto _ : state) {
        state.PauseTiming();
        Planner planner = before;
        Tasks tasks = batch;
        state.ResumeTiming();
        Plan(planner, tasks);
        benchmark::DoNotOptimize(tasks.data());
    }
}
#define PLANS                                                                                      \
    ->ArgNames({"batch", "before"})                                                                \
        ->Args({1, 0})                                                                             \
        ->Args({50, 0})                                                                            \
        ->Args({250, 0})                                                                           \
        ->Args({1, 200})                                                                           \
        ->Args({50, 200})                                                                          \
        ->Args({250, 200})                                                                         \
        ->Unit(benchmark::kMicrosecond)
BENCHMARK(BM_Plan<net::OffsetPlanner>)->Name("plan/ours") PLANS;
BENCHMARK(BM_Plan<MapPlanner>)->Name("plan/map") PLANS;

void BM_FrameTime(benchmark::State& state) {
    int length = 0;
    for (auto _ : state) {
        length = (length + 1) & 7;
        benchmark::DoNotOptimize(
            net::calculateFrameTransmissionTime(kRates, net::CAN_FD_Task, net::STANDARD, length));
    }
}
BENCHMARK(BM_FrameTime)->Name("frame time");

void BM_BcmMessage(benchmark::State& state) {
    canfd_frame frame{};
    frame.len = 64;
    uint64_t delay = 0;
    for (auto _ : state) {
        const auto message = net::BcmMessage::Start(frame, 3, ++delay, 10);
        benchmark::DoNotOptimize(message.Data());
    }
}
BENCHMARK(BM_BcmMessage)->Name("BCM message");

constexpr size_t kBurst = 255;

std::vector<uint8_t> BurstRequest() {
    std::vector<uint8_t> request{22, 52, 8, kBurst};
    for (size_t i = 0; i < kBurst; ++i) {
        const uint8_t entry[] = {static_cast<uint8_t>(i), 1, 0, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8};
        request.insert(request.end(), std::begin(entry), std::end(entry));
    }
    return request;
}

// The socket is /dev/null: a system call each, and nothing behind it.
class NullSockets : public net::ZephCanCom {
  public:
    NullSockets() : ZephCanCom(0) { fd1_ = open("/dev/null", O_WRONLY | O_CLOEXEC); }
    int Open() override { return 0; }
    int Raw() const { return fd1_; }
};

void BM_BurstOurs(benchmark::State& state) {
    MemoryBoard::Instance();
    net::ZephCanComM sockets;
    for (uint8_t ch = 0; ch < 6; ++ch) {
        sockets.ReplaceChannel(ch, std::make_shared<NullSockets>());
    }
    net::CanSend send(nullptr, sockets);
    const auto request = BurstRequest();
    for (auto _ : state) {
        send.SendMutiMessages(request);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBurst));
}
BENCHMARK(BM_BurstOurs)->Name("burst of 255/ours")->Unit(benchmark::kMicrosecond);

void BM_BurstWrites(benchmark::State& state) {
    const NullSockets sockets;
    std::vector<can_frame> frames(kBurst);
    for (size_t i = 0; i < kBurst; ++i) {
        frames[i].can_id = static_cast<canid_t>(i);
        frames[i].can_dlc = 8;
    }
    for (auto _ : state) {
        for (const can_frame& frame : frames) {
            benchmark::DoNotOptimize(write(sockets.Raw(), &frame, sizeof(frame)));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kBurst));
}
BENCHMARK(BM_BurstWrites)->Name("burst of 255/writes")->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RequireIdenticalPlans();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
