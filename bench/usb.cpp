// The USB link over memory: a message out beside the floor of any such queue (a copy of the same
// bytes under a mutex that nobody else holds), and a host request from the ring to its answer.

#include "app/VciServiceGroup.h"
#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThreadPool.h"
#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "doubles/ThreadCost.h"
#include "drivers/UsbDriver.h"

#include <cstring>
#include <mutex>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

constexpr size_t kRingSize = 0x1000000;
// Messages of one thread between two drains: four threads of the longest stay below half a ring.
constexpr int kDrainEvery = 512;

MemoryUsb& Usb() {
    return MemoryUsb::Instance();
}

void Drain() {
    Usb().Set(MemoryUsb::kWriteOut, Usb().Get(MemoryUsb::kWriteIn));
    Usb().Set(MemoryUsb::kLengthOut, Usb().Get(MemoryUsb::kLengthIn));
}

int CheapSystemCall() {
    return syscall(SYS_getppid) > 0 ? 0 : -1;
}

void UsbWrite(benchmark::State& state, bool systemCall) {
    static Drivers::UsbDriver& driver = [&]() -> Drivers::UsbDriver& {
        Usb();
        return Drivers::UsbDriver::GetInstance();
    }();
    if (state.thread_index() == 0) {
        Usb().Reset();
        Usb().doorbell = systemCall ? std::function<int()>(CheapSystemCall) : nullptr;
    }
    const std::vector<uint8_t> message(static_cast<size_t>(state.range(0)), 0x5A);
    const uint64_t before = ThreadAllocations();
    int sinceDrain = 0;
    uint64_t dropped = 0;
    for (auto _ : state) {
        dropped += driver.UsbWrite(message.data(), static_cast<uint32_t>(message.size())) == 0;
        if (++sinceDrain == kDrainEvery) {
            sinceDrain = 0;
            Drain();
        }
    }
    state.counters["dropped"] = static_cast<double>(dropped);
    if (state.threads() == 1) {
        state.counters["allocations"] = static_cast<double>(ThreadAllocations() - before);
    }
}

void UsbWriteQuiet(benchmark::State& state) {
    UsbWrite(state, false);
}
void UsbWriteSystemCall(benchmark::State& state) {
    UsbWrite(state, true);
}

// The floor: the same bytes to the same amount of memory, one lock, one copy.
void CopyUnderMutex(benchmark::State& state, bool systemCall) {
    static std::vector<uint8_t> ring(kRingSize);
    static std::mutex mutex;
    static size_t in = 0;
    const std::vector<uint8_t> message(static_cast<size_t>(state.range(0)), 0x5A);
    for (auto _ : state) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (in + message.size() > ring.size()) {
            in = 0;
        }
        std::memcpy(ring.data() + in, message.data(), message.size());
        in += message.size();
        benchmark::ClobberMemory();
        if (systemCall) {
            benchmark::DoNotOptimize(CheapSystemCall());
        }
    }
}

void CopyUnderMutexQuiet(benchmark::State& state) {
    CopyUnderMutex(state, false);
}
void CopyUnderMutexSystemCall(benchmark::State& state) {
    CopyUnderMutex(state, true);
}

void Messages(benchmark::internal::Benchmark* row) {
    for (const int size : {16, 32, 116, 2048}) {
        row->Arg(size);
    }
    row->Threads(1)->Threads(4)->UseRealTime();
}

BENCHMARK(UsbWriteQuiet)->Name("usb_write/ours/quiet")->Apply(Messages);
BENCHMARK(CopyUnderMutexQuiet)->Name("usb_write/copy_under_mutex/quiet")->Apply(Messages);
BENCHMARK(UsbWriteSystemCall)->Name("usb_write/ours/system_call")->Apply(Messages);
BENCHMARK(CopyUnderMutexSystemCall)
    ->Name("usb_write/copy_under_mutex/system_call")
    ->Apply(Messages);

// From bytes in the read ring to the answer in the write ring.
void RequestToAnswer(benchmark::State& state) {
    MemoryBoard::Instance();
    Usb().Reset();
    ZephEventLoop loop;
    const auto group = std::make_unique<VciGroupService>(
        &loop, std::make_shared<ZephEventLoopThreadPool>(&loop, 3));
    const uint8_t frame[16] = {0, 2, 0, 0, 0, 16, 1};
    for (size_t at = 0; at < Drivers::UsbDriver::kReadRingSize; at += sizeof(frame)) {
        std::memcpy(Usb().ReadRing() + at, frame, sizeof(frame));
    }
    Drivers::UsbDriver::GetInstance();
    const uint64_t before = ThreadAllocations();
    int sinceDrain = 0;
    for (auto _ : state) {
        Usb().Set(MemoryUsb::kReadIn, Usb().Get(MemoryUsb::kReadIn) + sizeof(frame));
        group->HandleUsbEvent();
        if (++sinceDrain == kDrainEvery) {
            sinceDrain = 0;
            Drain();
        }
    }
    state.counters["allocations"] = static_cast<double>(ThreadAllocations() - before);
    state.counters["answers"] = static_cast<double>(Usb().Get(MemoryUsb::kLengthIn));
}
BENCHMARK(RequestToAnswer)->Name("request_to_answer/sync_request");

} // namespace

BENCHMARK_MAIN();
