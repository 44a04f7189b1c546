#include "vcihost/ClockPair.h"

#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

TEST(ClockPair, TheStampLiesInTheMiddleOfTheRoundTrip) {
    const Deadline sent{100s};
    const auto pair =
        ClockPair::Make(1000, sent, sent + 2ms, 1'700'000'000'000'000'000, sent + 5ms);
    EXPECT_EQ(pair.device, 1000U);
    EXPECT_EQ(pair.wall, 1'699'999'999'996'000'000U);
    EXPECT_EQ(pair.uncertainty, 1'000'000U);
}

TEST(ClockPair, TellsDeviceTimeAsWallClockTime) {
    const ClockPair pair{1000, 5000, 1};
    EXPECT_EQ(pair.ToWall(1000), 5000U);
    EXPECT_EQ(pair.ToWall(1500), 5500U);
    EXPECT_EQ(pair.ToWall(0), 4000U);
    const ClockPair behind{5000, 1000, 1};
    EXPECT_EQ(behind.ToWall(4500), 500U);
    EXPECT_EQ(behind.ToWall(3000), 0U);
}

TEST(ClockPair, TextSaysHowToComeBackToDeviceTime) {
    EXPECT_EQ((ClockPair{1000, 5000, 7}).Text(),
              "Times are the device's clock told as wall-clock time: time = device time + 4000 ns. "
              "Taken at the start: device time 1000 ns was 5000 ns after 1970-01-01T00:00:00Z on "
              "the host's clock, within 7 ns.");
    EXPECT_NE((ClockPair{5000, 1000, 7}).Text().find("device time - 4000 ns."), std::string::npos);
}

} // namespace
