#include "utils/Published.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include <gtest/gtest.h>

namespace {

using Words = std::array<uint64_t, 8>;

Words All(uint64_t value) {
    Words words{};
    words.fill(value);
    return words;
}

TEST(Published, TheFirstValueStandsUntilAnotherIsWritten) {
    Published<int> value(7);
    EXPECT_EQ(value.Read(), 7);
    EXPECT_EQ(value.Read(), 7);
    value.Write(8);
    EXPECT_EQ(value.Read(), 8);
    EXPECT_EQ(value.Read(), 8);
}

TEST(Published, OfSeveralValuesTheLastIsRead) {
    Published<int> value(0);
    for (int next = 1; next <= 10; ++next) {
        for (int i = 0; i < next; ++i) {
            value.Write(next * 100 + i);
        }
        EXPECT_EQ(value.Read(), next * 100 + next - 1);
    }
}

TEST(Published, WhatWasReadStaysWhileOthersAreWritten) {
    Published<Words> value(All(1));
    value.Write(All(2));
    const Words& read = value.Read();
    for (uint64_t next = 3; next < 20; ++next) {
        value.Write(All(next));
        EXPECT_EQ(read, All(2));
    }
    EXPECT_EQ(value.Read(), All(19));
}

TEST(Published, AReaderBesideAWriterSeesWholeValuesThatNeverGoBack) {
    constexpr uint64_t kLast = 200'000;
    Published<Words> value(All(0));
    std::atomic<bool> reading{false};
    std::thread writer([&] {
        while (!reading) {
            std::this_thread::yield();
        }
        for (uint64_t next = 1; next <= kLast; ++next) {
            value.Write(All(next));
        }
    });
    uint64_t seen = 0;
    uint64_t torn = 0;
    uint64_t back = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (seen != kLast && torn == 0 && back == 0 && std::chrono::steady_clock::now() < end) {
        const Words read = value.Read();
        reading = true;
        torn += std::count(read.begin(), read.end(), read[0]) == 8 ? 0U : 1U;
        back += read[0] < seen ? 1U : 0U;
        seen = read[0];
    }
    writer.join();
    EXPECT_EQ(seen, kLast) << "the last value was not seen in time";
    EXPECT_EQ(torn, 0U);
    EXPECT_EQ(back, 0U);
    EXPECT_EQ(value.Read(), All(kLast));
}

} // namespace
