#include "net/PacketCapture.h"

#include "net/CapturedPacket.h"
#include "net/NetNamespace.h"
#include "utils/TempDir.h"
#include "utils/UniqueFd.h"

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

constexpr auto kDeadline = 8s;

struct Seen {
    int index;
    long seconds;
    long nanoseconds;
    std::vector<uint8_t> bytes;

    bool operator==(const Seen&) const = default;
};

// Collects what a capture hands on, from its worker or from the test.
class Sink {
  public:
    void Attach(net::PacketCapture& capture) {
        capture.SetHandlePacketCallBack(
            [this](const pcap_pkthdr* header, const u_char* packet, int index) {
                const std::lock_guard<std::mutex> lock(mutex_);
                seen_.push_back({index, header->ts.tv_sec, header->ts.tv_usec,
                                 std::vector<uint8_t>(packet, packet + header->caplen)});
                more_.notify_all();
            });
    }

    // The first `count` packets; fewer, and a failure, when they do not come in time.
    std::vector<Seen> Await(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        EXPECT_TRUE(more_.wait_for(lock, kDeadline, [&] { return seen_.size() >= count; }));
        return seen_;
    }

    std::vector<int> Indices() {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::vector<int> indices;
        for (const auto& one : seen_) {
            indices.push_back(one.index);
        }
        return indices;
    }

  private:
    std::mutex mutex_;
    std::condition_variable more_;
    std::vector<Seen> seen_;
};

CapturedPacket OfInterface(uint32_t index) {
    return MakeCanPacket({.index = index});
}

// The filter alone, fed by the test itself.
class PacketCaptureFilterTest : public testing::Test {
  protected:
    PacketCaptureFilterTest() { sink.Attach(capture); }

    void Feed(const CapturedPacket& packet) {
        const pcap_pkthdr header = packet.Header();
        net::Callback(reinterpret_cast<u_char*>(&capture), &header, packet.bytes.data());
    }

    Sink sink;
    net::PacketCapture capture{static_cast<pcap_t*>(nullptr)};
};

using Indices = std::vector<int>;

TEST_F(PacketCaptureFilterTest, WithNothingMonitoredNoCallbackRuns) {
    Feed(OfInterface(1));
    Feed(OfInterface(0));
    EXPECT_EQ(sink.Indices(), Indices{});
}

TEST_F(PacketCaptureFilterTest, TwoOnsAndOneOffLeaveAnInterfaceOff) {
    capture.SetNetworkMonitor(5, true);
    capture.SetNetworkMonitor(5, true);
    Feed(OfInterface(5));
    capture.SetNetworkMonitor(5, false);
    Feed(OfInterface(5));
    EXPECT_EQ(sink.Indices(), Indices{5});
}

TEST_F(PacketCaptureFilterTest, AnOffForAnInterfaceThatIsNotMonitoredChangesNothing) {
    capture.SetNetworkMonitor(5, true);
    capture.SetNetworkMonitor(6, false);
    Feed(OfInterface(6));
    Feed(OfInterface(5));
    EXPECT_EQ(sink.Indices(), Indices{5});
}

TEST_F(PacketCaptureFilterTest, TheInterfaceIndexStandsInNetworkByteOrder) {
    capture.SetNetworkMonitor(0x01020304, true);
    CapturedPacket packet = OfInterface(0);
    packet.bytes[4] = 1;
    packet.bytes[5] = 2;
    packet.bytes[6] = 3;
    packet.bytes[7] = 4;
    Feed(packet);
    packet.bytes[4] = 4;
    packet.bytes[5] = 3;
    packet.bytes[6] = 2;
    packet.bytes[7] = 1;
    Feed(packet);
    EXPECT_EQ(sink.Indices(), Indices{0x01020304});
}

TEST_F(PacketCaptureFilterTest, APacketTooShortToNameItsInterfaceIsDroppedAndCounted) {
    capture.SetNetworkMonitor(1, true);
    CapturedPacket packet = OfInterface(1);
    packet.bytes.resize(8);
    Feed(packet);
    for (size_t length = 0; length < 8; ++length) {
        packet.bytes.resize(length);
        packet.bytes.shrink_to_fit(); // so that a sanitizer sees a read behind it
        Feed(packet);
    }
    EXPECT_EQ(sink.Indices(), Indices{1});
    EXPECT_EQ(capture.TruncatedPackets(), 8U);
}

TEST(PacketCapture, StopWithoutAStartDoesNothing) {
    net::PacketCapture capture(static_cast<pcap_t*>(nullptr));
    capture.StopCapturer();
    capture.StopCapturer();
    EXPECT_EQ(capture.TruncatedPackets(), 0U);
}

TEST(PacketCapture, TheWorkerHandsOnThePacketsOfMonitoredInterfacesInOrder) {
    const TempDir dir;
    std::vector<CapturedPacket> packets{OfInterface(3), OfInterface(4), OfInterface(5),
                                        OfInterface(3)};
    packets[0].seconds = 7;
    packets[0].nanoseconds = 123456789;
    packets[3].bytes.push_back(0x5A);
    Sink sink;
    net::PacketCapture capture(OpenRecorded(packets, dir / "recorded"));
    sink.Attach(capture);
    capture.SetNetworkMonitor(3, true);
    capture.SetNetworkMonitor(5, true);
    capture.StartCapturer();
    const std::vector<Seen> expected{{3, 7, 123456789, packets[0].bytes},
                                     {5, 0, 0, packets[2].bytes},
                                     {3, 0, 0, packets[3].bytes}};
    EXPECT_EQ(sink.Await(3), expected);
    capture.StopCapturer();
    EXPECT_EQ(sink.Await(3), expected);
}

// Packets through a pipe: the worker waits for each as it does for a live one.
TEST(PacketCapture, ASwitchHoldsFromTheNextPacketOn) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    FILE* const out = fdopen(ends[1], "w");
    pcap_t* const form =
        pcap_open_dead_with_tstamp_precision(kCookedLinkType, 8192, PCAP_TSTAMP_PRECISION_NANO);
    pcap_dumper_t* const feed = pcap_dump_fopen(form, out);
    pcap_dump_flush(feed);
    char errbuf[PCAP_ERRBUF_SIZE];
    Sink sink;
    net::PacketCapture capture(pcap_fopen_offline_with_tstamp_precision(
        fdopen(ends[0], "r"), PCAP_TSTAMP_PRECISION_NANO, errbuf));
    sink.Attach(capture);
    const auto arrive = [&](uint32_t index) {
        const CapturedPacket packet = OfInterface(index);
        const pcap_pkthdr header = packet.Header();
        pcap_dump(reinterpret_cast<u_char*>(feed), &header, packet.bytes.data());
        pcap_dump_flush(feed);
    };
    capture.SetNetworkMonitor(9, true); // packets of this one tell how far the worker is
    capture.StartCapturer();
    capture.SetNetworkMonitor(1, true);
    arrive(1);
    sink.Await(1);
    capture.SetNetworkMonitor(1, false);
    arrive(1);
    arrive(9);
    sink.Await(2);
    capture.SetNetworkMonitor(1, true);
    arrive(1);
    sink.Await(3);
    EXPECT_EQ(sink.Indices(), (Indices{1, 9, 1}));
    pcap_dump_close(feed);
    pcap_close(form);
    capture.StopCapturer();
}

TEST(PacketCapture, MayBeSwitchedWhilePacketsCome) {
    const TempDir dir;
    std::vector<CapturedPacket> packets;
    for (uint32_t i = 0; i < 20000; ++i) {
        packets.push_back(OfInterface(i % 8));
    }
    packets.push_back(OfInterface(99));
    net::PacketCapture capture(OpenRecorded(packets, dir / "recorded"));
    std::promise<void> last;
    uint64_t foreign = 0;
    capture.SetHandlePacketCallBack([&](const pcap_pkthdr*, const u_char*, int index) {
        foreign += index == 7 ? 1 : 0;
        if (index == 99) {
            last.set_value();
        }
    });
    capture.SetNetworkMonitor(99, true);
    capture.StartCapturer();
    auto done = last.get_future();
    for (int i = 0; done.wait_for(0s) != std::future_status::ready && i < 1000000; ++i) {
        capture.SetNetworkMonitor(i % 7, (i & 1) != 0);
    }
    EXPECT_EQ(done.wait_for(kDeadline), std::future_status::ready);
    capture.StopCapturer();
    EXPECT_EQ(foreign, 0U);
}

TEST(PacketCapture, ACaptureThatCannotBeOpenedIsToldAndNeverDelivers) {
    testing::internal::CaptureStderr();
    net::PacketCapture capture("no-such-interface");
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told.rfind("Could not open device no-such-interface: ", 0), 0U) << told;
    EXPECT_EQ(told.back(), '\n');
    Sink sink;
    sink.Attach(capture);
    capture.SetNetworkMonitor(1, true);
    capture.StartCapturer();
    capture.StopCapturer();
    EXPECT_EQ(sink.Indices(), Indices{});
}

TEST(PacketCapture, SeesALivePacketOfTheInterfaceThatIsMonitored) {
    const NetNamespace alone;
    ASSERT_TRUE(alone.Entered()) << "this test needs the right to make a network namespace";
    ASSERT_TRUE(alone.RenameLoopback("ncan0"));
    ASSERT_TRUE(alone.Raise("ncan0"));
    const int index = static_cast<int>(if_nametoindex("ncan0"));
    Sink sink;
    net::PacketCapture capture;
    sink.Attach(capture);
    capture.SetNetworkMonitor(index, true);
    capture.StartCapturer();
    const std::vector<uint8_t> data{1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_TRUE(alone.Send("ncan0", 12, data));
    const auto seen = sink.Await(1);
    capture.StopCapturer();
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen[0].index, index);
    ASSERT_EQ(seen[0].bytes.size(), 28U); // 20 bytes of header before the data
    EXPECT_EQ(std::vector<uint8_t>(seen[0].bytes.begin(), seen[0].bytes.begin() + 2),
              (std::vector<uint8_t>{0, 12}));
    EXPECT_EQ(std::vector<uint8_t>(seen[0].bytes.begin() + 20, seen[0].bytes.end()), data);
}

TEST(PacketCapture, StopEndsALiveCaptureThatWaits) {
    const NetNamespace alone;
    ASSERT_TRUE(alone.Entered()) << "this test needs the right to make a network namespace";
    ASSERT_TRUE(alone.RenameLoopback("ncan0"));
    ASSERT_TRUE(alone.Raise("ncan0"));
    Sink sink;
    net::PacketCapture capture;
    sink.Attach(capture);
    capture.SetNetworkMonitor(static_cast<int>(if_nametoindex("ncan0")), true);
    capture.StartCapturer();
    ASSERT_TRUE(alone.Send("ncan0", 12, {1}));
    ASSERT_FALSE(sink.Await(1).empty()); // the worker is in its loop, and nothing more will come
    auto stopped = std::async(std::launch::async, [&] { capture.StopCapturer(); });
    ASSERT_EQ(stopped.wait_for(kDeadline), std::future_status::ready);
}

TEST(PacketCapture, APacketIsKeptUpToTheSnapLength) {
    const NetNamespace alone;
    ASSERT_TRUE(alone.Entered()) << "this test needs the right to make a network namespace";
    ASSERT_TRUE(alone.RenameLoopback("ncan0"));
    ASSERT_TRUE(alone.Raise("ncan0"));
    Sink sink;
    net::PacketCapture capture;
    sink.Attach(capture);
    capture.SetNetworkMonitor(static_cast<int>(if_nametoindex("ncan0")), true);
    capture.StartCapturer();
    ASSERT_TRUE(alone.Send("ncan0", 12, std::vector<uint8_t>(9000, 0x5A)));
    const auto seen = sink.Await(1);
    capture.StopCapturer();
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen[0].bytes.size(), 8192U);
}

} // namespace
