#include "vcihost/ReplayReceipt.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

constexpr uint64_t kStart = 5'000'000'000; // device time of the first frame

class ReplayReceiptTest : public testing::Test {
  protected:
    void Due(uint8_t channel, const std::string& text, uint64_t at) {
        receipt_.Due({channel, 0, ParseCanFrame(text)}, at);
    }

    // `at`: nanoseconds behind the first frame.
    void Seen(uint8_t channel, const std::string& text, uint64_t at, bool received = false) {
        const CanFrame frame = ParseCanFrame(text);
        CanFrameRecord record{};
        record.time = kStart + at;
        record.channel = channel;
        record.received = received;
        record.id = frame.id;
        record.extended = frame.extended;
        record.remote = frame.remote;
        record.fd = frame.fd;
        record.brs = frame.brs;
        record.dlc = DlcOfLength(frame.Length()).value();
        record.data = frame.data;
        receipt_.Seen(record);
    }

    ReplayReceipt receipt_;
};

TEST_F(ReplayReceiptTest, LatenessAndSpacing) {
    Due(0, "123#11", 0);
    Due(0, "00000123#22", 1000);
    Due(0, "123#33", 2000);
    Seen(0, "123#11", 0);
    Seen(0, "123#11", 50, true); // the other side's
    Seen(0, "00000123#22", 1'000'300);
    Seen(0, "123#33", 1'999'900);
    const auto frames = receipt_.Frames();
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].frame.id, 0x123U);
    EXPECT_FALSE(frames[0].frame.extended);
    EXPECT_EQ(frames[0].due, 2U);
    EXPECT_EQ(frames[0].sent, 2U);
    EXPECT_EQ(frames[0].late.earliest, -100);
    EXPECT_EQ(frames[0].late.median, -100);
    EXPECT_EQ(frames[0].late.p99, 0);
    EXPECT_EQ(frames[0].late.latest, 0);
    EXPECT_EQ(frames[0].spacingMax, 400);
    EXPECT_TRUE(frames[1].frame.extended);
    EXPECT_EQ(frames[1].late.latest, 300);
    EXPECT_EQ(frames[1].spacingP99, 300);
    EXPECT_EQ(receipt_.Ran(), 1'999'900U);
    EXPECT_EQ(receipt_.Planned(), 2'000'000U);
    EXPECT_EQ(receipt_.Others(), 0U);
}

TEST_F(ReplayReceiptTest, AFrameThatIsOvertakenIsLost) {
    for (uint64_t i = 0; i < 3; ++i) {
        Due(1, "100#AA", i * 1000);
        Due(1, "200#BB", i * 1000 + 500);
    }
    Seen(1, "100#AA", 0);
    Seen(1, "200#BB", 500'000);
    Seen(1, "200#BB", 1'500'000); // the second 100 did not go
    Seen(1, "100#AA", 2'000'000);
    Seen(1, "200#BB", 2'500'000);
    const auto frames = receipt_.Frames();
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].Lost(), 1U);
    EXPECT_EQ(frames[0].late.latest, 0);
    EXPECT_EQ(frames[1].Lost(), 0U);
    EXPECT_EQ(frames[1].spacingMax, 0);
    EXPECT_EQ(receipt_.TotalDue(), 6U);
    EXPECT_EQ(receipt_.TotalSent(), 5U);
}

TEST_F(ReplayReceiptTest, WhatIsNoneOfTheFileIsCountedAlone) {
    Due(0, "100#AA", 0);
    Due(0, "100##0AA", 1000);
    Due(0, "100#R2", 2000);
    for (const char* const other : {"100#AB", "100#AAAA", "101#AA", "100##1AA", "100#R3"}) {
        Seen(0, other, 10);
    }
    Seen(1, "100#AA", 10);
    EXPECT_EQ(receipt_.Others(), 6U);
    EXPECT_EQ(receipt_.TotalSent(), 0U);
    EXPECT_FALSE(receipt_.Ran());
    EXPECT_FALSE(receipt_.Frames().at(0).late.median);
    EXPECT_FALSE(receipt_.Frames().at(0).spacingMax);
}

TEST_F(ReplayReceiptTest, APauseIsNoLateness) {
    for (uint64_t i = 0; i < 4; ++i) {
        Due(0, "100#AA", i * 1000);
    }
    Seen(0, "100#AA", 0);
    Seen(0, "100#AA", 1'000'000);
    receipt_.Resumed();
    Seen(0, "100#AA", 60'000'000'000);
    Seen(0, "100#AA", 60'001'000'200);
    const auto frame = receipt_.Frames().at(0);
    EXPECT_EQ(frame.late.latest, 200);
    EXPECT_EQ(frame.spacingMax, 200);
    EXPECT_EQ(receipt_.Ran(), 2'000'200U);
    EXPECT_EQ(receipt_.Planned(), 2'000'000U);
}

TEST_F(ReplayReceiptTest, AnyDeviceTime) {
    Due(0, "100#AA", 0);
    Due(0, "100#AA", 1000);
    Due(0, "100#AA", 2000);
    Seen(0, "100#AA", 0);
    Seen(0, "100#AA", uint64_t{1} << 63U);
    Seen(0, "100#AA", ~uint64_t{0} - kStart);
    EXPECT_EQ(receipt_.Frames().at(0).sent, 3U);
}

} // namespace
