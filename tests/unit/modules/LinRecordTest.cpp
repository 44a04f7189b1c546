#include "modules/LinRecord.h"

#include "doubles/ThreadCost.h"
#include "drivers/LinManage.h"
#include "modules/LinPacket.h"
#include "support/BoardTest.h"

#include <array>
#include <cstring>

namespace {

using Drivers::LinManage;

// The driver's mapped arrays stand in memory.
class LinRecordTest : public BoardTest {
  protected:
    LinRecordTest() {
        for (size_t ch = 0; ch < arrays.size(); ++ch) {
            LinManage::mappedMemory[ch] = arrays[ch].data();
        }
    }
    ~LinRecordTest() override {
        for (auto& memory : LinManage::mappedMemory) {
            memory = nullptr;
        }
    }

    void Receive(size_t channel, size_t element, const Bytes& detil) {
        std::memcpy(&arrays[channel][element], detil.data(), sizeof(lin_rx_detil));
    }

    std::vector<Bytes> Record(const CapturedPacket& packet, int channel = 0) {
        const pcap_pkthdr header = packet.Header();
        record.LinPacketCooked(&header, packet.bytes.data(), channel);
        return Answers();
    }

    Bytes RecordOne(const CapturedPacket& packet, int channel = 0) {
        const auto records = Record(packet, channel);
        EXPECT_EQ(records.size(), 1U);
        return records.empty() ? Bytes(116) : records.front();
    }

    std::array<std::array<lin_rx_detil, 100>, 2> arrays{};
    std::vector<int> wakeups;
    size_t answersAtWakeup = 0;
    LinRecord record{[this](int channel) {
        wakeups.push_back(channel);
        answersAtWakeup = usb.Get(MemoryUsb::kLengthIn);
    }};
};

TEST_F(LinRecordTest, AFrameByteForByte) {
    Receive(1, 42, MakeLinDetil(0, 0x11223344, 0x00025566));
    Bytes expected{0x00, 0x67, 0x00, 0x00, 0x00, 0x09, 0x1A, 0x01, // head, channel
                   0x08,                                           // pid
                   0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, // start
                   0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F, // end
                   0x03, 0x66, 0x55,                               // status, error
                   0x07, 0x09,                                     // direction, length
                   0x20, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, // data
                   0x0B, 0x0A};                                    // checksum, computed
    for (uint8_t offset = 40; offset < 108; ++offset) {
        expected.push_back(offset); // the timing words stand at the same offsets
    }
    expected.insert(expected.end(), 8, 0x00);
    ASSERT_EQ(expected.size(), 116U);
    EXPECT_EQ(RecordOne(MakeLinPacket(42, 7), 1), expected);
    EXPECT_TRUE(wakeups.empty());
}

TEST_F(LinRecordTest, AWakeupByteForByte) {
    Receive(0, 99, MakeLinDetil(0, 100, 5));
    EXPECT_EQ(RecordOne(MakeLinPacket(99)),
              (Bytes{0x00, 0x13, 0x00, 0x00, 0x00, 0x09, 0x1B, 0x00, 0x10, 0x11, 0x12,
                     0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D,
                     0x1E, 0x1F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
}

TEST_F(LinRecordTest, AWakeupIsReportedBehindItsRecord) {
    Receive(1, 3, MakeLinDetil(0, 100, 0));
    Record(MakeLinPacket(3), 1);
    EXPECT_EQ(wakeups, std::vector<int>{1});
    EXPECT_EQ(answersAtWakeup, 1U);
}

TEST_F(LinRecordTest, OnlyTheMarkerIsAWakeup) {
    for (const uint32_t id : {99U, 101U, 0U, 0x164U, 0x64000000U}) {
        Receive(0, 0, MakeLinDetil(0, id, 0));
        EXPECT_EQ(RecordOne(MakeLinPacket(0))[6], 26) << id;
    }
    EXPECT_TRUE(wakeups.empty());
}

TEST_F(LinRecordTest, TheStatusTellsWhetherThereIsAnError) {
    const auto status = [&](uint32_t error) {
        Receive(0, 0, MakeLinDetil(0, 1, error));
        const Bytes bytes = RecordOne(MakeLinPacket(0));
        return Bytes(bytes.begin() + 25, bytes.begin() + 28);
    };
    EXPECT_EQ(status(0), (Bytes{2, 0, 0}));
    EXPECT_EQ(status(1), (Bytes{3, 1, 0}));
    EXPECT_EQ(status(0x10000), (Bytes{3, 0, 0})); // of which the record has the low half alone
}

TEST_F(LinRecordTest, ALengthAndADirectionTravelAsTheyStand) {
    for (const uint8_t value : Bytes{0, 8, 9, 255}) {
        Bytes detil = MakeLinDetil(0, 1, 0);
        detil[9] = value;
        Receive(0, 0, detil);
        const Bytes bytes = RecordOne(MakeLinPacket(0, value));
        EXPECT_EQ(bytes[28], value);
        EXPECT_EQ(bytes[29], value);
        EXPECT_EQ(bytes.size(), 116U);
    }
}

TEST_F(LinRecordTest, EachElementIsItsOwn) {
    for (uint8_t element = 0; element < 100; ++element) {
        Receive(0, element, MakeLinDetil(element, 1, 0));
    }
    for (uint8_t element = 0; element < 100; ++element) {
        EXPECT_EQ(RecordOne(MakeLinPacket(element))[8], 8 + element);
    }
}

TEST_F(LinRecordTest, AnElementThatIsNotThereIsDroppedAndCounted) {
    for (const uint8_t element : Bytes{100, 101, 255}) {
        EXPECT_TRUE(Record(MakeLinPacket(element)).empty());
    }
    EXPECT_EQ(record.MalformedPackets(), 3U);
}

TEST_F(LinRecordTest, APacketThatEndsTooEarlyIsDroppedAndCounted) {
    CapturedPacket packet = MakeLinPacket(1);
    for (size_t length = 0; length < 36; ++length) {
        packet.bytes.resize(length);
        packet.bytes.shrink_to_fit(); // so that a sanitizer sees a read behind it
        EXPECT_TRUE(Record(packet).empty()) << length;
    }
    EXPECT_EQ(record.MalformedPackets(), 36U);
    packet = MakeLinPacket(1);
    packet.bytes.resize(36);
    EXPECT_EQ(Record(packet).size(), 1U);
}

TEST_F(LinRecordTest, WithoutItsArrayAChannelsPacketsAreDroppedWithAWord) {
    LinManage::mappedMemory[1] = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(Record(MakeLinPacket(1), 1).empty());
    EXPECT_TRUE(Record(MakeLinPacket(1), 2).empty());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "linChannel map nullptr\nLinManage::GetRxMemmap channel error\n");
    EXPECT_EQ(Record(MakeLinPacket(1), 0).size(), 1U);
}

TEST_F(LinRecordTest, ARecordAllocatesNothingAndLocksTheWriteRingOnce) {
    Receive(0, 1, MakeLinDetil(0, 1, 0));
    wakeups.reserve(2000);
    Receive(0, 2, MakeLinDetil(0, 100, 0));
    const std::array<CapturedPacket, 2> packets{MakeLinPacket(1), MakeLinPacket(2)};
    const auto feed = [&] {
        for (const auto& packet : packets) {
            const pcap_pkthdr header = packet.Header();
            record.LinPacketCooked(&header, packet.bytes.data(), 0);
        }
    };
    feed();
    const size_t allocations = ThreadAllocations();
    const size_t locks = ThreadMutexLocks();
    for (int i = 0; i < 1000; ++i) {
        feed();
    }
    const size_t allocated = ThreadAllocations() - allocations;
    const size_t locked = ThreadMutexLocks() - locks;
    EXPECT_EQ(allocated, 0U);
    EXPECT_EQ(locked, ThreadCostIsCounted() ? 2000U : 0U);
    EXPECT_EQ(Answers().size(), 2002U);
}

TEST_F(LinRecordTest, AFullRingDropsTheRecordAndTheWakeupIsReportedAllTheSame) {
    Receive(0, 0, MakeLinDetil(0, 100, 0));
    usb.Set(MemoryUsb::kWriteIn, 0x1000000);
    EXPECT_TRUE(Record(MakeLinPacket(0)).empty());
    EXPECT_EQ(wakeups, std::vector<int>{0});
}

} // namespace
