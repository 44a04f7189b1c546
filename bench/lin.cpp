// The LIN side over a USB link in memory with a doorbell that costs nothing: a captured packet to
// its record in the write ring, the work of one slot of a running schedule, and the arithmetic of
// protected identifiers.

#include "doubles/MemoryUsb.h"
#include "doubles/ThreadCost.h"
#include "drivers/LinManage.h"
#include "drivers/UsbDriver.h"
#include "modules/LinRecord.h"
#include "modules/LinRequest.h"
#include "modules/LinSchedule/LinFrame.h"
#include "modules/LinSchedule/LinTable.h"
#include "net/ZephLinComM.h"

#include <array>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kDrainEvery = 512; // records between two drains: far below a full ring

void Drain() {
    MemoryUsb& usb = MemoryUsb::Instance();
    usb.Set(MemoryUsb::kWriteOut, usb.Get(MemoryUsb::kWriteIn));
    usb.Set(MemoryUsb::kLengthOut, usb.Get(MemoryUsb::kLengthIn));
}

// Fails a benchmark whose rounds have allocated.
class NoAllocation {
  public:
    explicit NoAllocation(benchmark::State& state) : state_(state), before_(ThreadAllocations()) {}
    void Check() const {
        const size_t allocated = ThreadAllocations() - before_;
        state_.counters["allocations"] = static_cast<double>(allocated);
        if (allocated != 0) {
            state_.SkipWithError("it allocates");
        }
    }

  private:
    benchmark::State& state_;
    size_t before_;
};

void LinPacketToRecord(benchmark::State& state, uint32_t linId) {
    static std::array<lin_rx_detil, kLinMappedRecords> records{};
    for (auto& record : records) {
        record.lin_id = linId;
    }
    Drivers::LinManage::mappedMemory[0] = records.data();
    MemoryUsb::Instance().Reset();
    Drivers::UsbDriver::GetInstance();
    uint64_t wakeups = 0;
    LinRecord record([&wakeups](int) { ++wakeups; });
    Bytes packet(92);
    pcap_pkthdr header{};
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    const NoAllocation allocation(state);
    int sinceDrain = 0;
    for (auto _ : state) {
        packet[34] = static_cast<uint8_t>((packet[34] + 1) % kLinMappedRecords);
        record.LinPacketCooked(&header, packet.data(), 0);
        if (++sinceDrain == kDrainEvery) {
            sinceDrain = 0;
            Drain();
        }
    }
    allocation.Check();
    Drivers::LinManage::mappedMemory[0] = nullptr;
}
BENCHMARK_CAPTURE(LinPacketToRecord, frame, 1)->Name("lin_packet_to_record/frame");
BENCHMARK_CAPTURE(LinPacketToRecord, wakeup, kLinWakeupId)->Name("lin_packet_to_record/wakeup");

// A socket that takes everything.
class NullSocket : public ZephLinCom {
  public:
    NullSocket() : ZephLinCom(0) {}
    int Open() override {
        fd_ = open("/dev/null", O_WRONLY | O_CLOEXEC);
        return fd_ < 0 ? -1 : 0;
    }
};

// A channel with a table of one slot.
struct Channel {
    Channel() {
        Drivers::LinManage::statusMask = 1;
        com.ReplaceChannel(0, std::make_shared<NullSocket>());
        opened = com.LinComMOpen(0) == 0;
        TableItem item;
        item.pid = LinGetPID(1);
        item.msg.lin_frame.pid = item.pid;
        table.addItem(std::move(item));
    }

    ZephLinComM com;
    LinTable table{0};
    bool opened;
};

// Made before the table of results, since it has something to say.
Channel& TheChannel() {
    static Channel channel;
    return channel;
}

// What an executor does in a slot, but for its sleep and its looks at the clock.
void LinSlotWork(benchmark::State& state) {
    Channel& channel = TheChannel();
    if (!channel.opened) {
        state.SkipWithError("/dev/null cannot be opened");
        return;
    }
    const TableItem& item = channel.table.items().front();
    const NoAllocation allocation(state);
    for (auto _ : state) {
        const canfd_frame frame = MakeLinFrame(item.pid, item.sent->Read());
        benchmark::DoNotOptimize(channel.com.WriteCallback(0, &frame));
    }
    allocation.Check();
}
BENCHMARK(LinSlotWork)->Name("lin_slot");

// The response of a running table changes: what the main thread pays for it, and the slot.
void LinResponse(benchmark::State& state) {
    LinTable& table = TheChannel().table;
    const uint8_t pid = table.items().front().pid;
    const Bytes data(8, 0x5A);
    const NoAllocation allocation(state);
    for (auto _ : state) {
        table.modifyData(pid, 8, data.data());
        benchmark::DoNotOptimize(table.items().front().sent->Read());
    }
    allocation.Check();
}
BENCHMARK(LinResponse)->Name("lin_response_changed_and_read");

void LinPid(benchmark::State& state) {
    uint8_t id = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(LinGetPID(id));
        id = static_cast<uint8_t>((id + 1) % 64);
    }
}
BENCHMARK(LinPid)->Name("lin_pid");

} // namespace

int main(int argc, char** argv) {
    TheChannel();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    Drivers::LinManage::statusMask = 0; // nothing is left to close
    return 0;
}
