// What one log line costs the thread that writes it, from the statement to the return of write():
// this logger, spdlog's synchronous logger flushed at each line, and a bare snprintf with write.
// All three write the same fields: level, local time in milliseconds, thread, place, message.
//
// Each line is timed on its own, since what matters to a thread that must keep a deadline is the
// dear line, not the mean one. Every figure contains one pair of clock readings, whose cost is the
// row Clock. With two threads a figure is the mean of both threads' figures.

#include "utils/Logger.h"

#include "utils/UniqueFd.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

namespace {

constexpr int kLines = 200000; // lines a thread writes: 200 lie above the 99.9th percentile

const std::string kNull = "/dev/null";

// Where the lines go: a file of its own, gone behind the benchmark, or nowhere.
class Target {
  public:
    explicit Target(bool isFile) : isFile_(isFile) {
        if (isFile_) {
            path_ = std::filesystem::temp_directory_path() /
                    ("vci-bench-logger-" + std::to_string(getpid()));
        }
        fd_.reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    }
    ~Target() {
        if (isFile_) {
            std::filesystem::remove(path_);
        }
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    int fd() const { return fd_.get(); }
    const std::string& path() const { return path_; }

  private:
    bool isFile_;
    std::string path_ = kNull;
    UniqueFd fd_;
};

std::unique_ptr<Target> target;
std::shared_ptr<spdlog::logger> peer;

void Open(const benchmark::State& state) {
    target = std::make_unique<Target>(state.range(0) != 0);
}
void Close(const benchmark::State&) {
    peer.reset();
    target.reset();
}

ssize_t WriteToTarget(const char* data, size_t length) {
    return write(target->fd(), data, length);
}

void OpenOurs(const benchmark::State& state) {
    Open(state);
    limlog::singleton()->setOutput(WriteToTarget);
}

template <typename Sink> void OpenPeer(const benchmark::State& state) {
    Open(state);
    peer = std::make_shared<spdlog::logger>("peer", std::make_shared<Sink>(target->path()));
    peer->set_pattern("%l %Y-%m-%dT%H:%M:%S.%e%z %t %g:%# %v");
    peer->flush_on(spdlog::level::info);
}

// Times `line` once for each iteration and reports the distribution, in nanoseconds.
template <typename Line> void Measure(benchmark::State& state, Line line) {
    std::vector<double> times;
    times.reserve(kLines);
    int number = 0;
    for (auto _ : state) {
        const auto before = std::chrono::steady_clock::now();
        line(number++);
        const auto after = std::chrono::steady_clock::now();
        const std::chrono::duration<double> taken = after - before;
        state.SetIterationTime(taken.count());
        times.push_back(taken.count() * 1e9);
    }
    std::sort(times.begin(), times.end());
    const auto at = [&times](double share) {
        const double last = static_cast<double>(times.size() - 1);
        return times[static_cast<size_t>(last * share)];
    };
    const auto report = [&state](const char* name, double nanoseconds) {
        state.counters[name] = benchmark::Counter(nanoseconds, benchmark::Counter::kAvgThreads);
    };
    report("mean",
           std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size()));
    report("median", at(0.5));
    report("p99", at(0.99));
    report("p99.9", at(0.999));
}

void Clock(benchmark::State& state) {
    Measure(state, [](int) {});
}

void Ours(benchmark::State& state) {
    Measure(state, [](int number) {
        VCI_LOG_INFO << "channel " << number << " state "
                     << "error active"
                     << " load " << 12.5;
    });
}

void Spdlog(benchmark::State& state) {
    Measure(state, [](int number) {
        SPDLOG_LOGGER_INFO(peer, "channel {} state {} load {}", number, "error active", 12.5);
    });
}

void Bare(benchmark::State& state) {
    Measure(state, [](int number) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        char text[256];
        const int length =
            snprintf(text, sizeof(text),
                     "INFO %04d-%02d-%02dT%02d:%02d:%02d.%03ld%+03ld:%02ld %d %s:%d "
                     "channel %d state %s load %g\n",
                     local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                     local.tm_min, local.tm_sec, now.tv_nsec / 1000000, local.tm_gmtoff / 3600,
                     local.tm_gmtoff % 3600 / 60, limlog::gettid(), __FILE__, __LINE__, number,
                     "error active", 12.5);
        benchmark::DoNotOptimize(write(target->fd(), text, static_cast<size_t>(length)));
    });
}

using FileSt = spdlog::sinks::basic_file_sink_st;
using FileMt = spdlog::sinks::basic_file_sink_mt;

#define LINES(function) BENCHMARK(function)->Iterations(kLines)->UseManualTime()->Teardown(Close)
#define EACH_TARGET ArgName("file")->Arg(0)->Arg(1)

LINES(Clock);
LINES(Ours)->Setup(OpenOurs)->EACH_TARGET;
LINES(Spdlog)->Setup(OpenPeer<FileSt>)->EACH_TARGET;
LINES(Bare)->Setup(Open)->EACH_TARGET;
LINES(Ours)->Setup(OpenOurs)->EACH_TARGET->Threads(2);
LINES(Spdlog)->Setup(OpenPeer<FileMt>)->EACH_TARGET->Threads(2);
LINES(Bare)->Setup(Open)->EACH_TARGET->Threads(2);

} // namespace

BENCHMARK_MAIN();
