#include "vcihost/BitTiming.h"

#include "vcihost/Notation.h"

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vcihost;
using testing::HasSubstr;

namespace {

BitTimingWish Wish(double rate) {
    BitTimingWish wish;
    wish.rate = rate;
    return wish;
}

std::string Fault(const BitTimingWish& wish, const BitTimingLimits& limits) {
    try {
        ChooseBitTiming(wish, limits);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "no error";
}

TEST(BitTiming, UsualRatesAreExactAtTheRecommendedSamplePoint) {
    const std::pair<double, double> rates[] = {{10e3, 0.875},  {20e3, 0.875},  {50e3, 0.875},
                                               {100e3, 0.875}, {125e3, 0.875}, {250e3, 0.875},
                                               {500e3, 0.875}, {800e3, 0.8},   {1e6, 0.75}};
    for (const auto& [rate, point] : rates) {
        const BitTiming timing = ChooseBitTiming(Wish(rate), kNominalLimits);
        EXPECT_DOUBLE_EQ(timing.Rate(), rate);
        EXPECT_DOUBLE_EQ(timing.SamplePoint(), point);
        EXPECT_NO_THROW(CheckBitTiming(timing, kNominalLimits));
    }
}

// 40 MHz / 500 kbit/s = 80 quanta of prescaler 1: 1 + 69, then 10.
TEST(BitTiming, TheMostQuantaAreTaken) {
    const BitTiming timing = ChooseBitTiming(Wish(500e3), kNominalLimits);
    EXPECT_EQ(timing.brp, 1);
    EXPECT_EQ(timing.seg1, 69);
    EXPECT_EQ(timing.seg2, 10);
    EXPECT_EQ(timing.sjw, 5);
    EXPECT_EQ(timing.PlannedRate(), 500000);
}

TEST(BitTiming, TheSmallestErrorOfTheRateCountsFirst) {
    BitTimingWish wish = Wish(83333);
    const BitTiming timing = ChooseBitTiming(wish, kNominalLimits);
    EXPECT_EQ(timing.brp * timing.Quanta(), 480U);
    EXPECT_EQ(timing.PlannedRate(), 83333);
    wish.samplePoint = 0.6;
    EXPECT_EQ(ChooseBitTiming(wish, kNominalLimits).brp * 1U *
                  ChooseBitTiming(wish, kNominalLimits).Quanta(),
              480U);
}

TEST(BitTiming, TheSamplePointIsTheNearestToTheWish) {
    for (const double point : {0.5, 0.6, 0.7, 0.75, 0.8, 0.9}) {
        BitTimingWish wish = Wish(500e3);
        wish.samplePoint = point;
        EXPECT_NEAR(ChooseBitTiming(wish, kNominalLimits).SamplePoint(), point, 1e-9);
    }
    // 8 Mbit/s has five quanta: 60 % or 80 %.
    EXPECT_DOUBLE_EQ(ChooseBitTiming(Wish(8e6), kDataLimits).SamplePoint(), 0.8);
}

TEST(BitTiming, EveryRateFromEndToEndStaysWithinTheRegisters) {
    for (double rate = 1e3; rate <= 1e6; rate *= 1.01) {
        try {
            const BitTiming timing = ChooseBitTiming(Wish(rate), kNominalLimits);
            EXPECT_NO_THROW(CheckBitTiming(timing, kNominalLimits));
            EXPECT_LE(std::abs(timing.Rate() - rate) / rate, 0.005);
        } catch (const NotationError& error) {
            EXPECT_THAT(error.what(), HasSubstr("the nearest are "));
        }
    }
}

TEST(BitTiming, SlowestAndFastestRates) {
    EXPECT_DOUBLE_EQ(ChooseBitTiming(Wish(1e3), kNominalLimits).Rate(), 1e3);
    EXPECT_DOUBLE_EQ(ChooseBitTiming(Wish(5e3), kDataLimits).Rate(), 5e3);
    EXPECT_EQ(Fault(Wish(999), kNominalLimits), "bitrate 999: it goes from 1k to 1M bit/s");
    EXPECT_EQ(Fault(Wish(2e6), kNominalLimits), "bitrate 2M: it goes from 1k to 1M bit/s");
    EXPECT_EQ(Fault(Wish(10e6), kDataLimits), "dbitrate 10M: it goes from 5k to 8M bit/s");
}

TEST(BitTiming, ARateThatIsMissedNamesItsNeighbours) {
    EXPECT_EQ(Fault(Wish(7e6), kDataLimits),
              "dbitrate 7M: the 40 MHz clock does not reach it within 0.5 %; the nearest are "
              "6.66667M and 8M bit/s");
    EXPECT_EQ(Fault(Wish(990e3), kNominalLimits),
              "bitrate 990k: the 40 MHz clock does not reach it within 0.5 %; the nearest are "
              "975.61k and 1M bit/s");
}

TEST(BitTiming, BothPhasesOfCanFdHaveOnePrescaler) {
    const auto [nominal, data] = ChooseFdBitTiming(Wish(500e3), Wish(2e6));
    EXPECT_EQ(nominal.brp, 1);
    EXPECT_EQ(data.brp, 1);
    EXPECT_EQ(data.seg1, 14);
    EXPECT_EQ(data.seg2, 5);
    EXPECT_EQ(data.sjw, 2);
    // At 87.5 % the data phase has room for 16 quanta of 80, so that both take 5.
    const auto [slow, same] = ChooseFdBitTiming(Wish(500e3), Wish(500e3));
    EXPECT_EQ(slow.brp, 5);
    EXPECT_EQ(same.brp, 5);
    EXPECT_EQ(slow.Quanta(), 16U);
    EXPECT_DOUBLE_EQ(same.SamplePoint(), 0.875);
}

TEST(BitTiming, TheJumpWidthIsHalfOfSegment2UnlessAsked) {
    BitTimingWish wish = Wish(500e3);
    wish.sjw = 10;
    EXPECT_EQ(ChooseBitTiming(wish, kNominalLimits).sjw, 10);
    wish.sjw = 11;
    EXPECT_EQ(Fault(wish, kNominalLimits), "bitrate: sjw 11 is longer than seg2 10");
    BitTiming timing;
    timing.seg1 = 3;
    timing.seg2 = 1;
    EXPECT_EQ(DefaultSjw(timing, kDataLimits), 1);
    timing.seg1 = 2;
    timing.seg2 = 8; // the second half of segment 1 is shorter
    EXPECT_EQ(DefaultSjw(timing, kDataLimits), 1);
}

TEST(BitTiming, WhatARegisterDoesNotHoldIsRefused) {
    BitTiming timing;
    timing.brp = 1;
    timing.sjw = 1;
    timing.seg1 = 33;
    timing.seg2 = 4;
    EXPECT_NO_THROW(CheckBitTiming(timing, kNominalLimits));
    try {
        CheckBitTiming(timing, kDataLimits);
        FAIL();
    } catch (const NotationError& error) {
        EXPECT_STREQ(error.what(), "dbitrate: seg1 33 is not from 1 to 32");
    }
    timing.brp = 0;
    EXPECT_THROW(CheckBitTiming(timing, kNominalLimits), NotationError);
    EXPECT_EQ(timing.PlannedRate(), 0);
}

} // namespace
