#include "net/planner/CanFrameTime.h"

#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using net::CAN_FD_Task;
using net::CAN_Task;
using net::EXTENDED;
using net::STANDARD;

constexpr net::CanBitRates kRates{500000, 2000000};

TEST(CanFrameTime, AStandardFrameOf8BytesTakes117Bits) {
    EXPECT_EQ(net::calculateFrameTransmissionTime(kRates, CAN_Task, STANDARD, 8), 234U);
}

TEST(CanFrameTime, AStandardFdFrameOf64BytesTakes19And619Bits) {
    EXPECT_EQ(net::calculateFrameTransmissionTime(kRates, CAN_FD_Task, STANDARD, 64), 347U);
}

TEST(CanFrameTime, AnExtendedIdTakes19BitsMoreBeforeStuffing) {
    // 9 + ceil(1.1 * 117) = 138 bits; FD: ceil(1.1 * 36) = 40 bits at the arbitration rate.
    EXPECT_EQ(net::calculateFrameTransmissionTime(kRates, CAN_Task, EXTENDED, 8), 276U);
    EXPECT_EQ(net::calculateFrameTransmissionTime(kRates, CAN_FD_Task, EXTENDED, 64), 389U);
}

TEST(CanFrameTime, AnEmptyFrameTakesItsHeadAndTail) {
    // 9 + ceil(1.1 * 34) = 47 bits; FD: 19 bits, and 9 + ceil(1.1 * 26) = 38 bits.
    EXPECT_EQ(net::calculateFrameTransmissionTime(kRates, CAN_Task, STANDARD, 0), 94U);
    EXPECT_EQ(net::calculateFrameTransmissionTime(kRates, CAN_FD_Task, STANDARD, 0), 57U);
}

TEST(CanFrameTime, AClassicFrameCountsAtMost8Bytes) {
    EXPECT_EQ(net::calculateFrameTransmissionTime(kRates, CAN_Task, STANDARD, 64), 234U);
}

TEST(CanFrameTime, MicrosecondsAreCutNotRounded) {
    // 117 bits at 83,333 bit/s are 1404.0056 us, at 666,667 bit/s 175.4999 us.
    EXPECT_EQ(net::calculateFrameTransmissionTime({83333, 0}, CAN_Task, STANDARD, 8), 1404U);
    EXPECT_EQ(net::calculateFrameTransmissionTime({666667, 0}, CAN_Task, STANDARD, 8), 175U);
}

TEST(CanFrameTime, TheSlowestRatesStayInRange) {
    EXPECT_EQ(net::calculateFrameTransmissionTime({1, 1}, CAN_FD_Task, EXTENDED, 64), 659000000U);
}

TEST(CanFrameTime, ALengthThatCannotBeIsRefused) {
    EXPECT_THROW(net::calculateFrameTransmissionTime(kRates, CAN_Task, STANDARD, -1),
                 std::runtime_error);
    EXPECT_THROW(net::calculateFrameTransmissionTime(kRates, CAN_FD_Task, STANDARD, -1),
                 std::runtime_error);
    try {
        net::calculateFrameTransmissionTime(kRates, CAN_FD_Task, STANDARD, 65);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Invalid DLC for specified frame type.");
    }
}

TEST(CanFrameTime, TheCrcHasThreeLengths) {
    EXPECT_EQ(net::getCanFdCrcBits(0), 17U);
    EXPECT_EQ(net::getCanFdCrcBits(8), 17U);
    EXPECT_EQ(net::getCanFdCrcBits(9), 21U);
    EXPECT_EQ(net::getCanFdCrcBits(24), 21U);
    EXPECT_EQ(net::getCanFdCrcBits(25), 33U);
    EXPECT_EQ(net::getCanFdCrcBits(64), 33U);
    try {
        net::getCanFdCrcBits(65);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Invalid DLC for CAN FD CRC calculation. DLC must be between 0 "
                                   "and 64.");
    }
}

} // namespace
