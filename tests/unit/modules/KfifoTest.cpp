#include "modules/Kfifo.h"

#include <thread>

#include <gtest/gtest.h>

namespace {

ReplayCanFrameType Numbered(uint32_t number) {
    ReplayCanFrameType frame{};
    frame.intervalTime = number;
    frame.Frame.id = ~number;
    frame.Frame.data[63] = static_cast<uint8_t>(number);
    return frame;
}

bool IsNumbered(const ReplayCanFrameType& frame, uint32_t number) {
    return frame.intervalTime == number && frame.Frame.id == ~number &&
           frame.Frame.data[63] == static_cast<uint8_t>(number);
}

TEST(KfifoTest, StartsEmpty) {
    Kfifo fifo;
    ReplayCanFrameType frame;
    EXPECT_TRUE(fifo.empty());
    EXPECT_FALSE(fifo.full());
    EXPECT_TRUE(fifo.halfEmpty());
    EXPECT_EQ(fifo.size(), 0U);
    EXPECT_FALSE(fifo.peek(frame));
    EXPECT_FALSE(fifo.pop(frame));
}

TEST(KfifoTest, GivesFramesInTheirOrder) {
    Kfifo fifo;
    ReplayCanFrameType frame;
    for (uint32_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(fifo.push(Numbered(i)));
    }
    for (uint32_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(fifo.peek(frame));
        EXPECT_TRUE(IsNumbered(frame, i));
        EXPECT_EQ(fifo.size(), 3 - i);
        ASSERT_TRUE(fifo.pop(frame));
        EXPECT_TRUE(IsNumbered(frame, i));
    }
    EXPECT_TRUE(fifo.empty());
}

TEST(KfifoTest, Holds511FramesAndRefusesThe512th) {
    Kfifo fifo;
    for (uint32_t i = 0; i < 511; ++i) {
        EXPECT_FALSE(fifo.full());
        ASSERT_TRUE(fifo.push(Numbered(i)));
    }
    EXPECT_TRUE(fifo.full());
    EXPECT_FALSE(fifo.push(Numbered(511)));
    EXPECT_EQ(fifo.size(), 511U);
    ReplayCanFrameType frame;
    ASSERT_TRUE(fifo.pop(frame));
    EXPECT_TRUE(IsNumbered(frame, 0));
    EXPECT_TRUE(fifo.push(Numbered(511)));
}

TEST(KfifoTest, IsHalfEmptyBelow256Frames) {
    Kfifo fifo;
    for (uint32_t i = 0; i < 255; ++i) {
        ASSERT_TRUE(fifo.push(Numbered(i)));
    }
    EXPECT_TRUE(fifo.halfEmpty());
    ASSERT_TRUE(fifo.push(Numbered(255)));
    EXPECT_FALSE(fifo.halfEmpty());
}

TEST(KfifoTest, KeepsOrderAndSizeAcrossTheWrap) {
    Kfifo fifo;
    ReplayCanFrameType frame;
    uint32_t in = 0;
    uint32_t out = 0;
    for (int round = 0; round < 10; ++round) {
        while (fifo.size() < 400) {
            ASSERT_TRUE(fifo.push(Numbered(in++)));
        }
        while (fifo.size() > 100) {
            ASSERT_TRUE(fifo.pop(frame));
            ASSERT_TRUE(IsNumbered(frame, out++));
        }
    }
}

TEST(KfifoTest, IsEmptyAfterAClearAndStillWorks) {
    Kfifo fifo;
    for (uint32_t i = 0; i < 511; ++i) {
        fifo.push(Numbered(i));
    }
    fifo.clear();
    EXPECT_TRUE(fifo.empty());
    ReplayCanFrameType frame;
    EXPECT_FALSE(fifo.pop(frame));
    ASSERT_TRUE(fifo.push(Numbered(7)));
    ASSERT_TRUE(fifo.pop(frame));
    EXPECT_TRUE(IsNumbered(frame, 7));
}

// Also for ThreadSanitizer: every frame arrives once, whole and in order, while the reader now and
// then throws away what there is, which is 511 frames at most.
TEST(KfifoTest, CarriesFramesFromThreadToThread) {
    constexpr uint32_t kFrames = 20000;
    Kfifo fifo;
    std::thread writer([&fifo] {
        for (uint32_t i = 0; i < kFrames; ++i) {
            while (!fifo.push(Numbered(i))) {
                std::this_thread::yield();
            }
        }
    });
    uint32_t expected = 0;
    uint32_t taken = 0;
    uint32_t mayMiss = 0; // frames that a clear has thrown away
    bool ordered = true;
    while (expected < kFrames) {
        ReplayCanFrameType frame;
        if (!fifo.pop(frame)) {
            std::this_thread::yield();
            continue;
        }
        const uint32_t number = frame.intervalTime;
        ordered &= number >= expected && number <= expected + mayMiss && IsNumbered(frame, number);
        expected = number + 1;
        mayMiss = 0;
        if (++taken % 1000 == 0 && expected < kFrames / 2) {
            fifo.clear();
            mayMiss = 511;
        }
    }
    writer.join();
    EXPECT_TRUE(ordered);
    EXPECT_GE(taken, kFrames / 2);
    EXPECT_TRUE(fifo.empty());
}

} // namespace
