#include "net/BcmMessage.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

using net::BcmMessage;
using Bytes = std::vector<uint8_t>;

Bytes BytesOf(const BcmMessage& message) {
    return {message.Data(), message.Data() + message.Size()};
}

net::BcmHead HeadOf(const BcmMessage& message) {
    net::BcmHead head{};
    std::copy_n(message.Data(), sizeof(head), reinterpret_cast<uint8_t*>(&head));
    return head;
}

// Seconds and microseconds of a period on the bus.
struct Interval {
    long seconds;
    long microseconds;
    bool operator==(const Interval&) const = default;
};

Interval ClassicPeriod(uint64_t ms) {
    const auto head = HeadOf(BcmMessage::Start(can_frame{}, 3, 0, ms));
    return {head.ival2.tv_sec, head.ival2.tv_usec};
}

Interval FdPeriod(uint8_t length, uint64_t ms) {
    canfd_frame frame{};
    frame.len = length;
    const auto head = HeadOf(BcmMessage::Start(frame, 3, 0, ms));
    return {head.ival2.tv_sec, head.ival2.tv_usec};
}

TEST(BcmMessage, AClassicStartHas72Bytes) {
    can_frame frame{};
    frame.can_id = 0x123;
    frame.can_dlc = 2;
    frame.data[0] = 0xAA;
    frame.data[1] = 0xBB;
    EXPECT_EQ(BytesOf(BcmMessage::Start(frame, 3, 1020240, 10)),
              (Bytes{
                  1,    0,    0, 0,             // TX_SETUP
                  3,    0,    0, 0,             // set and start the timer
                  0,    0,    0, 0,             // count
                  0,    0,    0, 0,             // unused
                  1,    0,    0, 0, 0, 0, 0, 0, // first delay: 1 s
                  0x10, 0x4F, 0, 0, 0, 0, 0, 0, // and 20,240 us
                  0,    0,    0, 0, 0, 0, 0, 0, // period
                  0xFC, 0x26, 0, 0, 0, 0, 0, 0, // 9,980 us
                  0x23, 1,    0, 0,             // id
                  1,    0,    0, 0,             // frames
                  0x23, 1,    0, 0, 2, 0, 0, 0, // the frame
                  0xAA, 0xBB, 0, 0, 0, 0, 0, 0, //
              }));
}

TEST(BcmMessage, AnFdStartHas128BytesAndItsFlag) {
    canfd_frame frame{};
    frame.can_id = 0x7FF;
    frame.len = 64;
    frame.flags = CANFD_BRS;
    frame.data[63] = 0x55;
    const Bytes bytes = BytesOf(BcmMessage::Start(frame, 1, 0, 10));
    Bytes expected(128, 0);
    expected[0] = 1;
    expected[4] = 1;
    expected[5] = 8; // 0x801
    expected[40] = 0xF2;
    expected[41] = 0x26; // 9,970 us
    expected[48] = 0xFF;
    expected[49] = 7;
    expected[52] = 1;
    expected[56] = 0xFF;
    expected[57] = 7;
    expected[60] = 64;
    expected[61] = 1;
    expected[127] = 0x55;
    EXPECT_EQ(bytes, expected);
}

TEST(BcmMessage, AStopNamesTheIdAndCarriesAnEmptyFrame) {
    Bytes classic(72, 0);
    classic[0] = 2; // TX_DELETE
    classic[48] = 0x78;
    classic[49] = 0x56;
    classic[50] = 0x34;
    classic[51] = 0x92;
    EXPECT_EQ(BytesOf(BcmMessage::Stop(0x12345678 | CAN_EFF_FLAG, false)), classic);
    Bytes fd = classic;
    fd.resize(128);
    fd[5] = 8; // 0x800
    EXPECT_EQ(BytesOf(BcmMessage::Stop(0x12345678 | CAN_EFF_FLAG, true)), fd);
}

TEST(BcmMessage, AClassicPeriodUpToOneSecondLoses20Us) {
    EXPECT_EQ(ClassicPeriod(1), (Interval{0, 980}));
    EXPECT_EQ(ClassicPeriod(1000), (Interval{0, 999980}));
}

TEST(BcmMessage, AClassicPeriodUpToTwoSecondsLoses8Us) {
    EXPECT_EQ(ClassicPeriod(1001), (Interval{1, 992}));
    EXPECT_EQ(ClassicPeriod(1999), (Interval{1, 998992}));
    EXPECT_EQ(ClassicPeriod(2000), (Interval{1, 999992}));
}

TEST(BcmMessage, ALongerPeriodStaysAsItIs) {
    EXPECT_EQ(ClassicPeriod(2001), (Interval{2, 1000}));
    EXPECT_EQ(ClassicPeriod(65535), (Interval{65, 535000}));
    EXPECT_EQ(FdPeriod(8, 65535), (Interval{65, 535000}));
}

TEST(BcmMessage, AnFdPeriodUpToOneSecondLosesByLength) {
    const std::vector<std::pair<uint8_t, long>> corrections{
        {0, 18}, {1, 19},  {2, 19},  {3, 19},  {4, 19},  {5, 20},  {6, 20},  {7, 20},
        {8, 20}, {12, 20}, {16, 21}, {20, 22}, {24, 22}, {32, 24}, {48, 27}, {64, 30}};
    for (const auto& [length, us] : corrections) {
        EXPECT_EQ(FdPeriod(length, 1000), (Interval{0, 1000000 - us})) << int{length};
        EXPECT_EQ(FdPeriod(length, 5), (Interval{0, 5000 - us})) << int{length};
    }
}

TEST(BcmMessage, AnFdPeriodUpToTwoSecondsLosesLess) {
    const std::vector<std::pair<uint8_t, long>> corrections{
        {0, 7}, {1, 7},  {2, 7},   {3, 7},   {4, 7},   {5, 8},   {6, 8},   {7, 8},
        {8, 8}, {12, 8}, {16, 10}, {20, 11}, {24, 11}, {32, 13}, {48, 16}, {64, 19}};
    for (const auto& [length, us] : corrections) {
        EXPECT_EQ(FdPeriod(length, 1500), (Interval{1, 500000 - us})) << int{length};
        EXPECT_EQ(FdPeriod(length, 2000), (Interval{1, 1000000 - us})) << int{length};
    }
}

TEST(BcmMessage, ALengthThatNoDlcHasLosesNothing) {
    EXPECT_EQ(FdPeriod(9, 100), (Interval{0, 100000}));
    EXPECT_EQ(FdPeriod(255, 2000), (Interval{2, 0}));
}

} // namespace
