#include "net/PacketBuckets.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using Times = std::vector<uint64_t>;

std::shared_ptr<Packet> At(uint64_t time, int index) {
    return std::make_shared<Packet>(time, index, std::make_shared<unsigned char[]>(4), 4);
}

class PacketBucketsTest : public testing::Test {
  protected:
    // The times that a drain hands on.
    Times Drain(PacketBuckets& buckets, uint64_t boundary) {
        Times times;
        allRipe = buckets.Drain(boundary, [&](const std::shared_ptr<Packet>& packet) {
            times.push_back(packet->timestamp);
        });
        return times;
    }

    bool allRipe = false;
};

TEST_F(PacketBucketsTest, TheOlderOfTwoBucketsComesFirst) {
    PacketBuckets buckets(2);
    buckets.Push(At(5, 0));
    buckets.Push(At(3, 1));
    EXPECT_EQ(Drain(buckets, 10), (Times{3, 5}));
    EXPECT_TRUE(allRipe);
}

TEST_F(PacketBucketsTest, WhatIsYoungerThanTheBoundaryStays) {
    PacketBuckets buckets(1);
    for (const uint64_t time : Times{1, 2, 3}) {
        buckets.Push(At(time, 0));
    }
    EXPECT_EQ(Drain(buckets, 2), (Times{1, 2}));
    EXPECT_TRUE(allRipe);
    EXPECT_EQ(Drain(buckets, 2), Times{});
    EXPECT_FALSE(allRipe);
    EXPECT_EQ(Drain(buckets, 3), Times{3});
}

TEST_F(PacketBucketsTest, AnEmptyBucketAndOneThatIsTooYoungAreNotRipe) {
    PacketBuckets buckets(2);
    buckets.Push(At(1, 0));
    EXPECT_EQ(Drain(buckets, 5), Times{1});
    EXPECT_FALSE(allRipe);
    buckets.Push(At(1, 0));
    buckets.Push(At(6, 1));
    EXPECT_EQ(Drain(buckets, 5), Times{1});
    EXPECT_FALSE(allRipe);
}

TEST_F(PacketBucketsTest, WithoutABucketNothingIsUnripe) {
    PacketBuckets buckets(0);
    EXPECT_EQ(Drain(buckets, 5), Times{});
    EXPECT_TRUE(allRipe);
}

TEST_F(PacketBucketsTest, APacketOfNoBucketIsDropped) {
    PacketBuckets buckets(2);
    EXPECT_FALSE(buckets.Push(At(1, 2)));
    EXPECT_FALSE(buckets.Push(At(1, -1)));
    EXPECT_TRUE(buckets.Push(At(1, 1)));
    EXPECT_EQ(Drain(buckets, 5), Times{1});
}

TEST_F(PacketBucketsTest, ManyBucketsLeaveInTheOrderOfASort) {
    std::mt19937 random(1);
    for (const int channels : {1, 2, 3, 8, 64}) {
        PacketBuckets buckets(channels);
        Times expected;
        std::vector<uint64_t> clock(static_cast<size_t>(channels));
        for (int i = 0; i < 2000; ++i) {
            const int channel = static_cast<int>(random() % static_cast<unsigned>(channels));
            uint64_t& time = clock[static_cast<size_t>(channel)];
            time += random() % 4; // often the same time again
            buckets.Push(At(time, channel));
            expected.push_back(time);
        }
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(Drain(buckets, UINT64_MAX), expected) << channels;
    }
}

TEST_F(PacketBucketsTest, ASinkThatThrowsDoesNoHarm) {
    PacketBuckets buckets(2);
    buckets.Push(At(1, 0));
    buckets.Push(At(2, 1));
    EXPECT_THROW(buckets.Drain(5, [](const auto&) { throw std::runtime_error("full"); }),
                 std::runtime_error);
    EXPECT_EQ(Drain(buckets, 5), (Times{1, 2}));
}

} // namespace
