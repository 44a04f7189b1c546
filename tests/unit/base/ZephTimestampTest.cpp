#include "base/ZephTimestamp.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <time.h>

#include <gtest/gtest.h>

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

TEST(ZephTimestamp, NowIsTheWallClockInMicroseconds) {
    using std::chrono::duration_cast;
    using std::chrono::microseconds;
    using std::chrono::system_clock;
    const int64_t before =
        duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const int64_t now = ZephTimestamp::now().microSecondsSinceEpoch();
    const int64_t after =
        duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(ZephTimestamp, OnlyAboveZeroIsValid) {
    EXPECT_EQ(ZephTimestamp::invalid().microSecondsSinceEpoch(), 0);
    EXPECT_FALSE(ZephTimestamp::invalid().valid());
    EXPECT_FALSE(ZephTimestamp().valid());
    EXPECT_FALSE(ZephTimestamp(-1).valid());
    EXPECT_TRUE(ZephTimestamp(1).valid());
}

TEST(ZephTimestamp, SecondsAreAnIntegerDivision) {
    EXPECT_EQ(ZephTimestamp(1'999'999).secondsSinceEpoch(), 1);
    EXPECT_EQ(ZephTimestamp(2'000'000).secondsSinceEpoch(), 2);
    EXPECT_EQ(ZephTimestamp(-1'999'999).secondsSinceEpoch(), -1);
}

TEST(ZephTimestamp, SwapAndOrder) {
    ZephTimestamp a(1);
    ZephTimestamp b(2);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_FALSE(a < a);
    a.swap(b);
    EXPECT_EQ(a.microSecondsSinceEpoch(), 2);
    EXPECT_EQ(b.microSecondsSinceEpoch(), 1);
}

TEST(ZephTimestamp, AddTimeTruncatesToWholeMicroseconds) {
    const ZephTimestamp start(1'000'000);
    EXPECT_EQ(addTime(start, 0.5).microSecondsSinceEpoch(), 1'500'000);
    EXPECT_EQ(addTime(start, 0.0000019).microSecondsSinceEpoch(), 1'000'001);
    EXPECT_EQ(addTime(start, -0.0000019).microSecondsSinceEpoch(), 999'999);
    EXPECT_EQ(addTime(start, -2.0).microSecondsSinceEpoch(), -1'000'000);
    EXPECT_EQ(addTime(start, 0.0).microSecondsSinceEpoch(), 1'000'000);
}

TEST(ZephTimestamp, AddTimeStaysInRange) {
    EXPECT_GT(addTime(ZephTimestamp(1), 1e300).microSecondsSinceEpoch(), kMax / 2);
    EXPECT_LT(addTime(ZephTimestamp(1), -1e300).microSecondsSinceEpoch(), kMin / 2);
    EXPECT_EQ(addTime(ZephTimestamp(kMax), 1.0).microSecondsSinceEpoch(), kMax);
    EXPECT_EQ(addTime(ZephTimestamp(kMin), -1.0).microSecondsSinceEpoch(), kMin);
    EXPECT_EQ(addTime(ZephTimestamp(5), std::nan("")).microSecondsSinceEpoch(), 5);
}

class ZephTimestampText : public testing::Test {
  protected:
    ZephTimestampText() {
        setenv("TZ", "UTC0", 1);
        tzset();
    }
    ~ZephTimestampText() override {
        unsetenv("TZ");
        tzset();
    }
};

TEST_F(ZephTimestampText, TakesTheMicrosecondCountAsSeconds) {
    EXPECT_EQ(ZephTimestamp(0).toString(), "1970/01/01 00:00:00");
    EXPECT_EQ(ZephTimestamp(1'714'979'289).toString(), "2024/05/06 07:08:09");
    EXPECT_EQ(ZephTimestamp(1'714'979'289'000'000).toString(), "54347500/03/27 09:20:00");
}

TEST_F(ZephTimestampText, IsLocalTime) {
    setenv("TZ", "XYZ-2", 1);
    tzset();
    EXPECT_EQ(ZephTimestamp(0).toString(), "1970/01/01 02:00:00");
}

TEST_F(ZephTimestampText, IsEmptyForAYearThatNoCalendarHas) {
    EXPECT_EQ(ZephTimestamp(kMax).toString(), "");
}

} // namespace
