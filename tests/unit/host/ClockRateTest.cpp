#include "vcihost/ClockRate.h"

#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

constexpr Deadline kStart{1000s};

TEST(ClockRate, NeedsTwoSamplesAtDifferentTimes) {
    ClockRate rate;
    EXPECT_FALSE(rate.Measure());
    rate.Add(5, kStart, kStart);
    EXPECT_FALSE(rate.Measure());
    rate.Add(6, kStart, kStart);
    EXPECT_FALSE(rate.Measure());
    EXPECT_EQ(rate.Count(), 2U);
}

TEST(ClockRate, AFasterDeviceClockIsPositive) {
    ClockRate rate;
    rate.Add(7'000'000'000, kStart, kStart);
    rate.Add(17'000'100'000, kStart + 10s, kStart + 10s); // 100 us ahead in 10 s
    const auto result = rate.Measure();
    ASSERT_TRUE(result);
    EXPECT_NEAR(result->ppm, 10, 0.001);
    EXPECT_NEAR(result->seconds, 10, 1e-9);
    EXPECT_NEAR(result->uncertainty, 0, 1e-9);
}

TEST(ClockRate, StampsAreTakenInTheMiddleOfTheRoundTrip) {
    ClockRate rate;
    rate.Add(1'000'000'000, kStart - 1ms, kStart + 1ms);
    rate.Add(2'000'000'000, kStart + 1s - 3ms, kStart + 1s + 3ms);
    const auto result = rate.Measure();
    ASSERT_TRUE(result);
    EXPECT_NEAR(result->ppm, 0, 0.001);
    EXPECT_NEAR(result->uncertainty, 6000, 0.001); // 3 ms early here, 3 ms late there
}

TEST(ClockRate, MoreSamplesMakeAStraightLine) {
    ClockRate rate;
    const uint64_t device[] = {0, 1'000'000'000, 2'000'000'000, 3'000'000'000};
    for (int i = 0; i < 4; ++i) {
        rate.Add(device[i], kStart + i * 1s, kStart + i * 1s);
    }
    EXPECT_NEAR(rate.Measure()->ppm, 0, 1e-6);
    EXPECT_NEAR(rate.Measure()->seconds, 3, 1e-9);
}

TEST(ClockRate, ADeviceClockThatWentBackIsNegative) {
    ClockRate rate;
    rate.Add(10'000'000'000, kStart, kStart);
    rate.Add(9'000'000'000, kStart + 1s, kStart + 1s);
    EXPECT_NEAR(rate.Measure()->ppm, -2e6, 0.01);
}

} // namespace
