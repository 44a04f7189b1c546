#include "modules/CanRecordFixture.h"

#include <map>

namespace {

TEST_F(CanRecordTest, AClassicFrameByteForByte) {
    CapturedPacket packet = MakeCanPacket({.protocol = kClassicProtocol,
                                           .id = 0x123,
                                           .length = 3,
                                           .flags = 3, // no meaning for a classic frame
                                           .direction = 1,
                                           .channel = 2,
                                           .payload = {0x11, 0x22, 0x33}});
    packet.seconds = 1;
    packet.nanoseconds = 2; // 0x3B9ACA02 ns in all
    EXPECT_EQ(Record(packet),
              (std::vector<Bytes>{{0x00, 0x13, 0x00, 0x00, 0x00, 0x09, 0x19, 0x0A, 0x23, 0x01, 0x00,
                                   0x00, 0x02, 0xCA, 0x9A, 0x3B, 0x00, 0x00, 0x00, 0x00, 0x83, 0x11,
                                   0x22, 0x33, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}}));
}

TEST_F(CanRecordTest, ALongFdFrameByteForByte) {
    CanFields fields = Frame(64, kFdProtocol);
    fields.id = 0x9ABCDEF0; // extended
    fields.flags = 3;       // BRS and ESI
    fields.direction = 0;
    fields.channel = 5;
    Bytes expected{0x00, 0x50, 0x00, 0x00, 0x00, 0x09, 0x19, 0x0D, 0xF0, 0xDE, 0xBC,
                   0x9A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x7F};
    for (uint8_t value = 1; value <= 64; ++value) {
        expected.push_back(value);
    }
    expected.insert(expected.end(), 7, 0x00);
    EXPECT_EQ(expected.size(), 92U);
    EXPECT_EQ(RecordOne(fields), expected);
}

TEST_F(CanRecordTest, AnEmptyFrameIsAllHead) {
    const Bytes record0 = RecordOne(Frame(0));
    EXPECT_EQ(record0.size(), 28U);
    EXPECT_EQ(record0[1], 16);
    EXPECT_EQ(record0[20], 0x80);
}

TEST_F(CanRecordTest, AShortRecordBehindALongOneIsZeroBehindItsPayload) {
    RecordOne(Frame(64, kFdProtocol));
    const Bytes shorter = RecordOne(Frame(1));
    ASSERT_EQ(shorter.size(), 28U);
    EXPECT_EQ(Bytes(shorter.begin() + 21, shorter.end()), (Bytes{1, 0, 0, 0, 0, 0, 0}));
}

TEST_F(CanRecordTest, ARemoteFramesFlagTravelsInTheFlagsByteAndNotInTheIdentifier) {
    const Bytes standard = RecordOne({.id = 0x40000123, .length = 4, .payload = {0, 0, 0, 0}});
    EXPECT_EQ(Bytes(standard.begin() + 8, standard.begin() + 12), (Bytes{0x23, 0x01, 0x00, 0x00}));
    EXPECT_EQ(standard[20], 0xA4);
    const Bytes extended = RecordOne({.id = 0xD2345678, .length = 0});
    EXPECT_EQ(Bytes(extended.begin() + 8, extended.begin() + 12), (Bytes{0x78, 0x56, 0x34, 0x92}));
    EXPECT_EQ(extended[20], 0xA0);
}

TEST_F(CanRecordTest, AnFdFrameHasNoRemoteFlag) {
    const Bytes fd = RecordOne({.protocol = kFdProtocol, .id = 0x40000123, .length = 0});
    EXPECT_EQ(Bytes(fd.begin() + 8, fd.begin() + 12), (Bytes{0x23, 0x01, 0x00, 0x40}));
    EXPECT_EQ(fd[20], 0xC0);
}

TEST_F(CanRecordTest, BrsAndEsiOfAnFdFrameHaveABitEach) {
    EXPECT_EQ(RecordOne({.protocol = kFdProtocol, .flags = 1})[20], 0xE0);
    EXPECT_EQ(RecordOne({.protocol = kFdProtocol, .flags = 2})[20], 0xD0);
    EXPECT_EQ(RecordOne({.protocol = kFdProtocol, .flags = 0xFC})[20], 0xC0);
}

TEST_F(CanRecordTest, OnlyDirectionOneIsReceived) {
    EXPECT_EQ(RecordOne({.direction = 1})[20], 0x80);
    EXPECT_EQ(RecordOne({.direction = 0})[20], 0x00);
    EXPECT_EQ(RecordOne({.direction = 2})[20], 0x00);
    EXPECT_EQ(RecordOne({.direction = 255})[20], 0x00);
    EXPECT_EQ(Values(CanRxFrameNum), (Counters{1}));
    EXPECT_EQ(Values(CanTxFrameNum), (Counters{3}));
    EXPECT_EQ(Values(CanFrameNum), (Counters{4}));
    EXPECT_EQ(Values(CanErrFrameNum), (Counters{}));
}

TEST_F(CanRecordTest, AClassicFrameIsCutToEightBytesAndKeepsTheDlcFromBeforeTheCut) {
    const Bytes record12 = RecordOne(Frame(12));
    EXPECT_EQ(record12[1], 24);
    EXPECT_EQ(record12.size(), 36U);
    EXPECT_EQ(record12[20], 0x89);
    EXPECT_EQ(Bytes(record12.begin() + 21, record12.end()),
              (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(RecordOne(Frame(64))[20], 0x8F);
    EXPECT_EQ(RecordOne(Frame(9))[20], 0x80); // no length that a frame can have
}

TEST_F(CanRecordTest, EachFdLengthHasItsDlc) {
    const std::map<uint8_t, uint8_t> dlcs{{0, 0},   {1, 1},   {2, 2},   {3, 3},  {4, 4},   {5, 5},
                                          {6, 6},   {7, 7},   {8, 8},   {12, 9}, {16, 10}, {20, 11},
                                          {24, 12}, {32, 13}, {48, 14}, {64, 15}};
    for (uint8_t length = 0; length <= 64; ++length) {
        const auto known = dlcs.find(length);
        EXPECT_EQ(RecordOne(Frame(length, kFdProtocol))[20],
                  0xC0 | (known == dlcs.end() ? 0 : known->second))
            << int{length};
    }
}

TEST_F(CanRecordTest, AnFdLengthThatNoFrameCanHaveTravelsWholeWithDlcZero) {
    const Bytes record13 = RecordOne(Frame(13, kFdProtocol));
    EXPECT_EQ(record13[1], 29);
    EXPECT_EQ(record13[20], 0xC0);
    EXPECT_EQ(Bytes(record13.begin() + 21, record13.begin() + 34),
              (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
}

TEST_F(CanRecordTest, ALengthAboveThatOfAnyFrameTravelsAsCaptured) {
    const Bytes record255 = RecordOne(Frame(255, kFdProtocol));
    EXPECT_EQ(record255.size(), 284U);
    EXPECT_EQ(Bytes(record255.begin(), record255.begin() + 5), (Bytes{0, 0x0F, 0x01, 0, 0}));
    EXPECT_EQ(record255[21], 1);
    EXPECT_EQ(record255[21 + 254], 255);
    EXPECT_EQ(Bytes(record255.begin() + 276, record255.end()), Bytes(8));
}

TEST_F(CanRecordTest, AFrameOfAnotherProtocolHasNeitherTypeNorFlags) {
    const Bytes other = RecordOne(
        {.protocol = 14, .id = 0x40000001, .length = 9, .flags = 3, .payload = Bytes(9, 0x77)});
    EXPECT_EQ(other[1], 25); // not cut
    EXPECT_EQ(other[11], 0x40);
    EXPECT_EQ(other[20], 0x80);
}

TEST_F(CanRecordTest, PayloadThatWasNotCapturedIsZero) {
    const Bytes cut = RecordOne({.length = 4, .payload = {0x11, 0x22}});
    EXPECT_EQ(cut[1], 20);
    EXPECT_EQ(Bytes(cut.begin() + 20, cut.end()),
              (Bytes{0x84, 0x11, 0x22, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(CanRecordTest, APacketWithoutItsWholeHeadIsDroppedAndCounted) {
    CapturedPacket packet = MakeCanPacket({});
    for (size_t length = 0; length < 34; ++length) {
        packet.bytes.resize(length);
        packet.bytes.shrink_to_fit(); // so that a sanitizer sees a read behind it
        EXPECT_TRUE(Record(packet).empty()) << length;
    }
    EXPECT_EQ(record.MalformedPackets(), 34U);
    EXPECT_EQ(Values(CanFrameNum), Counters{});
}

TEST_F(CanRecordTest, APacketOfNoChannelIsDroppedAndCounted) {
    for (const uint8_t channel : Bytes{6, 7, 8, 255}) {
        EXPECT_TRUE(Record({.channel = channel}).empty());
        EXPECT_TRUE(Record(ErrorNotice(channel, 0, 1)).empty());
    }
    EXPECT_EQ(record.MalformedPackets(), 8U);
    EXPECT_EQ(RecordOne({.channel = 5})[7], 13);
}

TEST_F(CanRecordTest, TheLastPossibleTimePassesAndOneNanosecondMoreIsDropped) {
    CapturedPacket packet = MakeCanPacket(Frame(1));
    packet.seconds = 40'000'000;
    const auto last = Record(packet);
    ASSERT_EQ(last.size(), 1U);
    EXPECT_EQ(Bytes(last[0].begin() + 12, last[0].begin() + 20),
              (Bytes{0x00, 0x00, 0x04, 0xBF, 0xC9, 0x1B, 0x8E, 0x00}));
    packet.nanoseconds = 1;
    EXPECT_TRUE(Record(packet).empty());
    packet.seconds = -1;
    EXPECT_TRUE(Record(packet).empty());
    packet.seconds = 1L << 55; // a product of nanoseconds that wraps to a small number
    EXPECT_TRUE(Record(packet).empty());
    EXPECT_EQ(Values(CanFrameNum), (Counters{1}));
}

TEST_F(CanRecordTest, AJumpBackOfMoreThanFiveSecondsIsToldAndTheRecordIsKept) {
    CapturedPacket packet = MakeCanPacket(Frame(1));
    testing::internal::CaptureStdout();
    for (const long seconds : {100, 95, 90, 96, 90, 100}) { // never more than six
        packet.seconds = seconds;
        EXPECT_EQ(Record(packet).size(), 1U);
    }
    packet.seconds = 94;
    packet.nanoseconds = 7;
    EXPECT_EQ(Record(packet).size(), 1U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "CAN WRONG TIMESTAMP: 90000000000\nCAN WRONG TIMESTAMP: 94000000007\n");
}

TEST_F(CanRecordTest, OneFrameIsHeldBackForAllTimeWhereListeningWasForbidden) {
    Drivers::CanManage::ListenchannelForbidden_ = 1 << 2;
    EXPECT_EQ(Record({.channel = 1}).size(), 1U); // another channel
    EXPECT_TRUE(Record({.channel = 2}).empty());
    EXPECT_EQ(Drivers::CanManage::ListenchannelForbidden_, 0);
    EXPECT_EQ(Record({.channel = 2}).size(), 1U);
    Drivers::CanManage::ListenchannelForbidden_ = 1 << 2 | 1 << 3;
    EXPECT_EQ(Record({.channel = 2}).size(), 1U);
    EXPECT_EQ(Record({.channel = 3}).size(), 1U);
    EXPECT_EQ(Drivers::CanManage::ListenchannelForbidden_, 1 << 2 | 1 << 3);
    EXPECT_EQ(Values(CanFrameNum), (Counters{0, 1, 2, 1}));
}

TEST_F(CanRecordTest, AFrameOfAnImpossibleTimeIsNotTheOneHeldBack) {
    Drivers::CanManage::ListenchannelForbidden_ = 1;
    CapturedPacket packet = MakeCanPacket({});
    packet.seconds = 40'000'001;
    EXPECT_TRUE(Record(packet).empty());
    EXPECT_EQ(Drivers::CanManage::ListenchannelForbidden_, 1);
}

TEST_F(CanRecordTest, ARecordThatTheFullRingDropsStillCounts) {
    usb.Set(MemoryUsb::kWriteIn, 0x1000000);
    EXPECT_TRUE(Record({.direction = 1, .channel = 4}).empty());
    EXPECT_TRUE(Record({.direction = 0, .channel = 4}).empty());
    EXPECT_TRUE(Record(ErrorNotice(4, 0, 3)).empty());
    EXPECT_EQ(Values(CanRxFrameNum), (Counters{0, 0, 0, 0, 1}));
    EXPECT_EQ(Values(CanTxFrameNum), (Counters{0, 0, 0, 0, 1}));
    EXPECT_EQ(Values(CanErrFrameNum), (Counters{0, 0, 0, 0, 3}));
    EXPECT_EQ(Values(CanFrameNum), (Counters{0, 0, 0, 0, 5}));
}

} // namespace
