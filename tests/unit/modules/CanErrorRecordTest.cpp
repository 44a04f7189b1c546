#include "modules/CanRecordFixture.h"

namespace {

// The driver's record, in the order of its fields.
Bytes ErrorSlot(uint8_t errcode, uint8_t direction, uint8_t length) {
    Bytes slot{0x88, 0x77,    0x66,      0x55,  0x44, 0x33, 0x22, 0x11, // timestamp
               9,    errcode,                     // channel, which is not read
               0x02, 0x01,                        // errBit
               0x0D, 0x0C,    0x0B,      0x8A,    // canid
               0x21, 1,       direction, 1,       // position, type, .., protocol
               8,    1,       0xEE,      length}; // dlc, esi, reserved
    for (uint8_t value = 1; value <= 64; ++value) {
        slot.push_back(value);
    }
    return slot;
}

class CanErrorRecordTest : public CanRecordTest {};

TEST_F(CanErrorRecordTest, AnErrorByteForByte) {
    files.Write(3, 7, ErrorSlot(4, 0, 2));
    EXPECT_EQ(Record(ErrorNotice(3, 7, 1)),
              (std::vector<Bytes>{{0x00, 0x16, 0x00, 0x00, 0x00, 0x68, 0x06, 0x88, 0x77,
                                   0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0x0B, 0x04, 0x02,
                                   0x01, 0x21, 0x0D, 0x0C, 0x0B, 0x8A, 0x78, 0x01, 0x02,
                                   0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}}));
    EXPECT_EQ(Values(CanErrFrameNum), (Counters{0, 0, 0, 1}));
    EXPECT_EQ(Values(CanFrameNum), (Counters{0, 0, 0, 1}));
    EXPECT_EQ(Values(CanRxFrameNum), Counters{});
    EXPECT_EQ(Values(CanTxFrameNum), Counters{});
}

TEST_F(CanErrorRecordTest, AnErrorTakesTheDriversTimeWhateverTheCaptureSays) {
    files.Write(0, 0, ErrorSlot(4, 0, 0));
    CapturedPacket packet = MakeCanPacket(ErrorNotice(0, 0, 1));
    packet.seconds = 1'800'000'000;
    EXPECT_EQ(Record(packet).size(), 1U);
}

TEST_F(CanErrorRecordTest, AnErrorNoticeOfNoSlotHasNoRecord) {
    EXPECT_TRUE(Record(ErrorNotice(0, 3, 0)).empty());
    EXPECT_EQ(Values(CanFrameNum), Counters{});
    EXPECT_EQ(record.MalformedPackets(), 0U);
}

TEST_F(CanErrorRecordTest, BehindTheLastSlotComesTheFirst) {
    files.Write(1, 255, ErrorSlot(0x55, 0, 0));
    files.Write(1, 0, ErrorSlot(0x66, 0, 0));
    files.Write(1, 1, ErrorSlot(0x77, 0, 0));
    const auto records = Record(ErrorNotice(1, 255, 3));
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0][16], 0x55);
    EXPECT_EQ(records[1][16], 0x66);
    EXPECT_EQ(records[2][16], 0x77);
}

TEST_F(CanErrorRecordTest, AsManySlotsAsAByteCountsAreRead) {
    EXPECT_EQ(Record(ErrorNotice(5, 128, 255)).size(), 255U);
}

TEST_F(CanErrorRecordTest, OnAListeningChannelAnErrorWithoutACodeIsReceivedWithCodeSeven) {
    Drivers::CanManage::ListenstatusMask_ = 1 << 1;
    files.Write(1, 0, ErrorSlot(0, 0, 0));
    files.Write(1, 1, ErrorSlot(3, 0, 0));
    files.Write(2, 0, ErrorSlot(0, 0, 0));
    auto records = Record(ErrorNotice(1, 0, 2));
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0][16], 7);
    EXPECT_EQ(records[0][24], 0xF8);
    EXPECT_EQ(records[1][16], 3);
    EXPECT_EQ(records[1][24], 0xF8);
    records = Record(ErrorNotice(2, 0, 1)); // a channel that does not listen
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0][16], 0);
    EXPECT_EQ(records[0][24], 0x78);
}

TEST_F(CanErrorRecordTest, AnErrorThatPromisesMoreBytesThanASlotHoldsIsFilledWithZeros) {
    files.Write(0, 0, ErrorSlot(1, 0, 255));
    files.Write(0, 1, ErrorSlot(0xFF, 0, 0));
    const auto records = Record(ErrorNotice(0, 0, 1));
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].size(), 288U);
    EXPECT_EQ(Bytes(records[0].begin(), records[0].begin() + 5), (Bytes{0, 0x13, 0x01, 0, 0}));
    EXPECT_EQ(records[0][25 + 63], 64);
    EXPECT_EQ(Bytes(records[0].begin() + 25 + 64, records[0].end()), Bytes(288 - 25 - 64));
}

TEST_F(CanErrorRecordTest, AnErrorNoticeWithoutItsSlotsIsDroppedAndCounted) {
    CapturedPacket packet = MakeCanPacket(ErrorNotice(0, 0, 1));
    for (const size_t length : {35U, 34U}) {
        packet.bytes.resize(length);
        packet.bytes.shrink_to_fit();
        EXPECT_TRUE(Record(packet).empty());
    }
    EXPECT_EQ(record.MalformedPackets(), 2U);
}

TEST_F(CanErrorRecordTest, AnErrorOfAChannelWithoutARingIsDroppedAndCounted) {
    const CanRecord::ErrorRings none;
    CanRecord without(Drivers::CanManage::GetInstance(), none);
    const CapturedPacket packet = MakeCanPacket(ErrorNotice(0, 0, 1));
    const pcap_pkthdr header = packet.Header();
    without.CanPacketCooked(&header, packet.bytes.data());
    EXPECT_TRUE(Answers().empty());
    EXPECT_EQ(without.MalformedPackets(), 1U);
}

} // namespace
