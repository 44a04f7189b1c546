// The recording over a USB link in memory with a doorbell that costs nothing: a captured packet to
// its record in the write ring, the lookups on that way beside what else could hold the same set,
// and the merge by time beside an ordered map and a sort of the same packets.

#include "doubles/MemoryBoard.h"
#include "doubles/MemoryUsb.h"
#include "doubles/ThreadCost.h"
#include "drivers/UsbDriver.h"
#include "modules/CanRecord.h"
#include "net/MonitoredInterfaces.h"
#include "net/PacketBuckets.h"
#include "net/PacketCapture.h"
#include "utils/UniqueFd.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kDrainEvery = 512; // records between two drains: far below a full ring
constexpr int kMonitored = 3;    // index of the interface that is recorded
constexpr int kChannelMapSize = 8;

MemoryUsb& Usb() {
    return MemoryUsb::Instance();
}

// A packet of the monitored interface; what is not named here is 0.
Bytes CanPacketBytes(uint8_t protocol, uint8_t length) {
    Bytes bytes(34 + size_t{length}, 0x5A);
    std::fill_n(bytes.begin(), 34, uint8_t{0});
    bytes[1] = protocol;
    bytes[7] = kMonitored;
    bytes[26] = 0x23;
    bytes[30] = length;
    bytes[32] = 1;
    return bytes;
}

Bytes Classic8() {
    return CanPacketBytes(12, 8);
}
Bytes Fd64() {
    return CanPacketBytes(13, 64);
}
Bytes OneError() {
    Bytes bytes = CanPacketBytes(12, 8);
    bytes[29] = 0x20;
    bytes[34] = 0; // slot
    bytes[35] = 1; // one of them
    return bytes;
}

// The whole way on the capture thread, as libpcap calls it.
void PacketToRecord(benchmark::State& state, const Bytes& packet) {
    MemoryBoard::Instance();
    Usb().Reset();
    Drivers::UsbDriver::GetInstance();
    const UniqueFd memory(memfd_create("error-ring", MFD_CLOEXEC));
    CanRecord::ErrorRings rings;
    if (ftruncate(memory.get(), 24576) != 0 ||
        !rings[0].Open("/proc/self/fd/" + std::to_string(memory.get()))) {
        state.SkipWithError("no memory for an error ring");
        return;
    }
    CanRecord record(Drivers::CanManage::GetInstance(), rings);
    net::PacketCapture capture(static_cast<pcap_t*>(nullptr));
    capture.SetHandlePacketCallBack([&record](const pcap_pkthdr* header, const u_char* bytes, int) {
        record.CanPacketCooked(header, bytes);
    });
    capture.SetNetworkMonitor(kMonitored, true);
    pcap_pkthdr header{};
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    header.len = header.caplen;

    const uint64_t before = ThreadAllocations();
    const uint64_t framesBefore = CanFrameNum[0].load();
    int sinceDrain = 0;
    uint64_t written = 0;
    const auto drain = [&] {
        written += Usb().Get(MemoryUsb::kLengthIn) - Usb().Get(MemoryUsb::kLengthOut);
        Usb().Set(MemoryUsb::kWriteOut, Usb().Get(MemoryUsb::kWriteIn));
        Usb().Set(MemoryUsb::kLengthOut, Usb().Get(MemoryUsb::kLengthIn));
    };
    for (auto _ : state) {
        ++header.ts.tv_usec;
        net::Callback(reinterpret_cast<u_char*>(&capture), &header, packet.data());
        if (++sinceDrain == kDrainEvery) {
            sinceDrain = 0;
            drain();
        }
    }
    drain();
    const auto allocated = ThreadAllocations() - before;
    state.counters["allocations"] = static_cast<double>(allocated);
    if (allocated != 0) {
        state.SkipWithError("a record allocates");
    }
    state.counters["lost"] = static_cast<double>(CanFrameNum[0].load() - framesBefore - written);
}
BENCHMARK_CAPTURE(PacketToRecord, classic_8, Classic8())->Name("packet_to_record/classic_8");
BENCHMARK_CAPTURE(PacketToRecord, fd_64, Fd64())->Name("packet_to_record/fd_64");
BENCHMARK_CAPTURE(PacketToRecord, error, OneError())->Name("packet_to_record/error");

// A packet of an interface that nobody asked for.
void PacketIgnored(benchmark::State& state) {
    net::PacketCapture capture(static_cast<pcap_t*>(nullptr));
    capture.SetHandlePacketCallBack([](const pcap_pkthdr*, const u_char*, int) { std::abort(); });
    capture.SetNetworkMonitor(kMonitored + 1, true);
    const Bytes packet = Classic8();
    pcap_pkthdr header{};
    header.caplen = static_cast<bpf_u_int32>(packet.size());
    for (auto _ : state) {
        net::Callback(reinterpret_cast<u_char*>(&capture), &header, packet.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(PacketIgnored)->Name("packet_ignored");

// Which interfaces are monitored, all eight of the board, asked for one after the other.
template <typename Ask> void AskForEach(benchmark::State& state, const Ask& has) {
    int index = 0;
    for (auto _ : state) {
        index = (index + 1) % kChannelMapSize;
        benchmark::DoNotOptimize(has(index));
    }
}

void SwitchOurs(benchmark::State& state) {
    net::MonitoredInterfaces set;
    for (int index = 0; index < kChannelMapSize; ++index) {
        set.Set(index, true);
    }
    AskForEach(state, [&set](int index) { return set.Has(index); });
}
BENCHMARK(SwitchOurs)->Name("switch/ours");

// What may not be changed while it is asked.
void SwitchUnorderedSet(benchmark::State& state) {
    std::unordered_set<int> set;
    for (int index = 0; index < kChannelMapSize; ++index) {
        set.insert(index);
    }
    AskForEach(state, [&set](int index) { return set.count(index) != 0; });
}
BENCHMARK(SwitchUnorderedSet)->Name("switch/unordered_set");

void SwitchUnorderedSetUnderMutex(benchmark::State& state) {
    std::unordered_set<int> set;
    std::mutex mutex;
    for (int index = 0; index < kChannelMapSize; ++index) {
        set.insert(index);
    }
    AskForEach(state, [&](int index) {
        const std::lock_guard<std::mutex> lock(mutex);
        return set.count(index) != 0;
    });
}
BENCHMARK(SwitchUnorderedSetUnderMutex)->Name("switch/unordered_set_under_mutex");

// The classifier's map from interface index to channel.
void Classifier(benchmark::State& state) {
    std::unordered_map<unsigned int, std::pair<uint8_t, uint8_t>> map;
    for (unsigned int index = 0; index < kChannelMapSize; ++index) {
        map[index] = {static_cast<uint8_t>(index + 8), uint8_t{1}};
    }
    AskForEach(state, [&map](int index) { return map.find(static_cast<unsigned int>(index)); });
}
BENCHMARK(Classifier)->Name("classifier");

// The merge. In each round every channel brings a few packets in its own order of time, and all are
// handed on in the order of all times. The packets are made once.
constexpr size_t kPacketsPerChannel = 16;
using Packets = std::vector<std::shared_ptr<Packet>>;

// In the order of arrival: channel by channel in small bursts, each channel in order itself.
Packets MakePackets(int channels) {
    Packets packets;
    const auto buffer = std::make_shared<unsigned char[]>(32);
    for (size_t i = 0; i < kPacketsPerChannel; ++i) {
        for (int channel = 0; channel < channels; ++channel) {
            const uint64_t jitter = (i * 7919 + static_cast<uint64_t>(channel) * 104729) % 900;
            packets.push_back(std::make_shared<Packet>(i * 1000 + jitter, channel, buffer, 32));
        }
    }
    return packets;
}

struct LastTime {
    void operator()(const std::shared_ptr<Packet>& packet) {
        ordered &= packet->timestamp >= time;
        time = packet->timestamp;
    }
    uint64_t time = 0;
    bool ordered = true;
};

template <typename Round> void Merge(benchmark::State& state, const Round& round) {
    const Packets packets = MakePackets(static_cast<int>(state.range(0)));
    bool ordered = true;
    const uint64_t before = ThreadAllocations();
    for (auto _ : state) {
        LastTime last;
        round(packets, last);
        ordered &= last.ordered;
    }
    if (!ordered) {
        state.SkipWithError("the packets did not come in the order of their time");
    }
    const auto records =
        static_cast<double>(state.iterations()) * static_cast<double>(packets.size());
    state.SetItemsProcessed(static_cast<int64_t>(records));
    state.counters["allocations_per_record"] =
        static_cast<double>(ThreadAllocations() - before) / records;
}

void MergeOurs(benchmark::State& state) {
    PacketBuckets buckets(static_cast<int>(state.range(0)));
    Merge(state, [&buckets](const Packets& packets, LastTime& last) {
        for (const auto& packet : packets) {
            buckets.Push(packet);
        }
        buckets.Drain(UINT64_MAX, [&last](const std::shared_ptr<Packet>& packet) { last(packet); });
    });
}

void MergeMultimap(benchmark::State& state) {
    std::multimap<uint64_t, std::shared_ptr<Packet>> map;
    Merge(state, [&map](const Packets& packets, LastTime& last) {
        for (const auto& packet : packets) {
            map.emplace(packet->timestamp, packet);
        }
        while (!map.empty()) {
            last(map.begin()->second);
            map.erase(map.begin());
        }
    });
}

void MergeSort(benchmark::State& state) {
    Packets sorted;
    Merge(state, [&sorted](const Packets& packets, LastTime& last) {
        sorted = packets;
        std::sort(sorted.begin(), sorted.end(),
                  [](const auto& a, const auto& b) { return a->timestamp < b->timestamp; });
        for (const auto& packet : sorted) {
            last(packet);
        }
        sorted.clear();
    });
}

void Channels(benchmark::internal::Benchmark* row) {
    row->Arg(2)->Arg(8)->Arg(64);
}
BENCHMARK(MergeOurs)->Name("merge/ours")->Apply(Channels);
BENCHMARK(MergeMultimap)->Name("merge/multimap")->Apply(Channels);
BENCHMARK(MergeSort)->Name("merge/sort")->Apply(Channels);

} // namespace

BENCHMARK_MAIN();
