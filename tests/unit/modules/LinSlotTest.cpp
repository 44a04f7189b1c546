#include "modules/LinSchedule/LinSlot.h"

#include <cmath>

#include <gtest/gtest.h>

namespace {

TEST(LinSlot, TheLeastLengthIsTheFrameAnd15Bits) {
    EXPECT_EQ(LinSlotLength(19200, 8, 0), 7239U); // (124 + 15) bits, cut to whole microseconds
    EXPECT_EQ(LinSlotLength(19200, 0, 0), 3072U);
    EXPECT_EQ(LinSlotLength(9600, 8, 0), 14479U);
    EXPECT_EQ(LinSlotLength(1, 255, 0), 2609000000U); // the most, without an overflow
    EXPECT_EQ(LinSlotLength(65535, 8, 0), 2121U);
}

TEST(LinSlot, TheHostsWishStandsWhereItIsLonger) {
    EXPECT_EQ(LinSlotLength(19200, 8, 7238), 7239U);
    EXPECT_EQ(LinSlotLength(19200, 8, 7240), 7240U);
    EXPECT_EQ(LinSlotLength(19200, 8, 65535000), 65535000U);
}

TEST(LinSlot, WithoutABitRateTheHostsWishStands) {
    EXPECT_EQ(LinSlotLength(0, 8, 0), 0U);
    EXPECT_EQ(LinSlotLength(0, 255, 1000), 1000U);
}

constexpr double kPlanned = 1000;

TEST(LinSlot, ADelayWithinTheLimitsIsKeptInWholeMicroseconds) {
    EXPECT_EQ(LinKeptDelay(kPlanned, kPlanned + 400.25), 400);
    EXPECT_EQ(LinKeptDelay(kPlanned, kPlanned + 401.75), 401);
    EXPECT_EQ(LinKeptDelay(kPlanned, kPlanned + 9999.75), 9999);
}

TEST(LinSlot, ExactlyTheLimitsAndBeyondAreCaughtUp) {
    for (const double late : {400.0, 10000.0, 0.0, 399.9, 10000.1, -500.0, -1e9, 1e9}) {
        EXPECT_EQ(LinKeptDelay(kPlanned, kPlanned + late), 0) << late;
    }
}

TEST(LinSlot, TheFirstSlotIsNotLate) {
    EXPECT_EQ(LinKeptDelay(0, 5000), 0);
    EXPECT_EQ(LinKeptDelay(1, 5001), 5000);
}

// Cycles in microseconds of the steady clock.
class LinCycleTest : public testing::Test {
  protected:
    static LinCycle::Clock::time_point At(double us) {
        return LinCycle::Clock::time_point(std::chrono::nanoseconds(std::llround(us * 1000)));
    }

    // The end of the next slot, which begins at `start`.
    double End(double start, int duration) {
        const auto end = cycle.NextEnd(At(start), std::chrono::microseconds(duration));
        return std::chrono::duration<double, std::micro>(end.time_since_epoch()).count();
    }

    LinCycle cycle;
};

TEST_F(LinCycleTest, ACycleIsPlanned14MicrosecondsShortAndOnce) {
    cycle.Begin(At(1000000));
    EXPECT_EQ(End(1000003, 10000), 1009986.0);
    EXPECT_EQ(End(1010050, 20000), 1029986.0); // from the start of the cycle, whatever has passed
    EXPECT_EQ(End(1029986, 5000), 1034986.0);
    cycle.Begin(At(1035020.5));
    EXPECT_EQ(End(1035021, 10000), 1045006.5);
}

TEST_F(LinCycleTest, ADelayWithinTheLimitsMovesTheRestOfTheCycle) {
    cycle.Begin(At(1000000));
    EXPECT_EQ(End(1000000, 10000), 1009986.0);
    EXPECT_EQ(End(1009986 + 2000.75, 10000), 1021986.0); // in whole microseconds
    EXPECT_EQ(End(1021986, 10000), 1031986.0);           // on time: nothing more
}

TEST_F(LinCycleTest, ExactlyTheLimitsAreCaughtUp) {
    for (const double late : {400.0, 10000.0}) {
        cycle = LinCycle();
        cycle.Begin(At(1000000));
        EXPECT_EQ(End(1000000, 10000), 1009986.0);
        EXPECT_EQ(End(1009986 + late, 20000), 1029986.0) << late;
    }
    cycle = LinCycle();
    cycle.Begin(At(1000000));
    EXPECT_EQ(End(1000000, 10000), 1009986.0);
    EXPECT_EQ(End(1009986 + 401, 20000), 1029986.0 + 401);
    EXPECT_EQ(End(1030387 + 9999, 20000), 1050387.0 + 9999);
}

TEST_F(LinCycleTest, TheFirstSlotOfAllIsNotLate) {
    cycle.Begin(At(1000000));
    EXPECT_EQ(End(1005000, 10000), 1009986.0);
}

TEST_F(LinCycleTest, ADelayBehindTheLastSlotOfACycleIsKeptInTheNext) {
    cycle.Begin(At(1000000));
    EXPECT_EQ(End(1000000, 10000), 1009986.0);
    cycle.Begin(At(1010986));
    EXPECT_EQ(End(1010986, 10000), 1010986.0 - 14 + 10000 + 1000);
}

} // namespace
