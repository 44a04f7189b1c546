#include "utils/IdGenerator.h"

#include <algorithm>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(IdGenerator, FirstIdIsZero) {
    IdGenerator ids;
    EXPECT_EQ(ids.NextId(), 0);
    EXPECT_EQ(ids.NextId(), 1);
    EXPECT_EQ(ids.NextId(), 2);
}

TEST(IdGenerator, GeneratorsCountForThemselves) {
    IdGenerator first;
    IdGenerator second;
    first.NextId();
    EXPECT_EQ(second.NextId(), 0);
}

TEST(IdGenerator, ThreadsNeverGetTheSameId) {
    constexpr size_t kThreads = 4;
    constexpr size_t kEach = 200000; // enough for the threads to run at the same time
    IdGenerator ids;
    std::latch start(kThreads);
    std::vector<std::vector<int>> taken(kThreads);
    std::vector<std::thread> threads;
    for (auto& mine : taken) {
        threads.emplace_back([&] {
            mine.reserve(kEach);
            start.arrive_and_wait();
            for (size_t i = 0; i < kEach; ++i) {
                mine.push_back(ids.NextId());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    std::vector<int> all;
    for (const auto& mine : taken) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), kThreads * kEach);
    for (size_t i = 0; i < all.size(); ++i) {
        ASSERT_EQ(all[i], static_cast<int>(i));
    }
}

} // namespace
