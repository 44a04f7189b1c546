#include "utils/IdGenerator.h"

#include <algorithm>
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
    constexpr int kEach = 1000;
    IdGenerator ids;
    std::vector<int> one;
    std::vector<int> two;
    const auto take = [&ids](std::vector<int>& into) {
        for (int i = 0; i < kEach; ++i) {
            into.push_back(ids.NextId());
        }
    };
    std::thread other(take, std::ref(two));
    take(one);
    other.join();

    one.insert(one.end(), two.begin(), two.end());
    std::sort(one.begin(), one.end());
    ASSERT_EQ(one.size(), 2U * kEach);
    for (int i = 0; i < 2 * kEach; ++i) {
        ASSERT_EQ(one[static_cast<size_t>(i)], i);
    }
}

} // namespace
