// What a packet costs the capture thread, from the capture's filter to the write ring.

#include "doubles/ThreadCost.h"
#include "modules/CanRecordFixture.h"
#include "net/PacketCapture.h"

namespace {

class RecordRoadTest : public CanRecordTest {
  protected:
    RecordRoadTest() {
        capture.SetHandlePacketCallBack([this](const pcap_pkthdr* header, const u_char* packet,
                                               int) { record.CanPacketCooked(header, packet); });
        capture.SetNetworkMonitor(1, true);
        files.Write(0, 0, std::vector<uint8_t>(CanErrorFiles::kSlotSize));
    }

    void Feed(const CapturedPacket& packet) {
        const pcap_pkthdr header = packet.Header();
        net::Callback(reinterpret_cast<u_char*>(&capture), &header, packet.bytes.data());
    }

    net::PacketCapture capture{static_cast<pcap_t*>(nullptr)};
};

TEST_F(RecordRoadTest, APacketAllocatesNothingAndLocksTheWriteRingOnce) {
    const std::vector<CapturedPacket> packets{MakeCanPacket(Frame(8)),
                                              MakeCanPacket(Frame(64, kFdProtocol)),
                                              MakeCanPacket(ErrorNotice(0, 0, 1))};
    for (const auto& packet : packets) {
        Feed(packet);
    }
    const size_t allocations = ThreadAllocations();
    const size_t locks = ThreadMutexLocks();
    for (int i = 0; i < 1000; ++i) {
        for (const auto& packet : packets) {
            Feed(packet);
        }
    }
    const size_t allocated = ThreadAllocations() - allocations;
    const size_t locked = ThreadMutexLocks() - locks;
    EXPECT_EQ(allocated, 0U);
    EXPECT_EQ(locked, ThreadCostIsCounted() ? 3000U : 0U);
    EXPECT_EQ(Answers().size(), 3003U);
}

TEST_F(RecordRoadTest, APacketThatNobodyRecordsTakesNoLockAtAll) {
    CanFields other = Frame(8);
    other.index = 2;
    const CapturedPacket packet = MakeCanPacket(other);
    Feed(packet);
    const size_t allocations = ThreadAllocations();
    const size_t locks = ThreadMutexLocks();
    Feed(packet);
    const size_t allocated = ThreadAllocations() - allocations;
    const size_t locked = ThreadMutexLocks() - locks;
    EXPECT_EQ(allocated, 0U);
    EXPECT_EQ(locked, 0U);
    EXPECT_TRUE(Answers().empty());
}

} // namespace
