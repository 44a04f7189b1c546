#include "modules/BuildDate.h"

#include <array>
#include <regex>

#include <gtest/gtest.h>

namespace {

TEST(BuildDateTest, ADateIsYearMonthAndDayAsOneNumber) {
    EXPECT_EQ(GetBuildTime("Oct 23 2025"), 20251023U);
    EXPECT_EQ(GetBuildTime("Jan 31 1999"), 19990131U);
    EXPECT_EQ(GetBuildTime("Dec 10 2031"), 20311210U);
}

TEST(BuildDateTest, ADayPaddedWithABlankIsOneDigit) {
    EXPECT_EQ(GetBuildTime("Oct  3 2025"), 20251003U);
    EXPECT_EQ(GetBuildTime("Feb  1 2024"), 20240201U);
}

TEST(BuildDateTest, EachMonthHasItsNumber) {
    const std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (size_t i = 0; i < months.size(); ++i) {
        EXPECT_EQ(getMonthNumber(months.at(i)), static_cast<int>(i) + 1) << months.at(i);
    }
}

TEST(BuildDateTest, WhatIsNoMonthOrNoDateCountsAsZero) {
    EXPECT_EQ(getMonthNumber("oct"), 0);
    EXPECT_EQ(getMonthNumber(""), 0);
    EXPECT_EQ(GetBuildTime(""), 0U);
    EXPECT_EQ(GetBuildTime("Oct"), 1000U);
    EXPECT_EQ(GetBuildTime("??? ?? ????"), 0U);
}

TEST(BuildDateTest, TheCompilersDateHasThatForm) {
    const std::string date(CompileDate());
    EXPECT_TRUE(std::regex_match(date, std::regex("[A-Z][a-z]{2} [ 123][0-9] [0-9]{4}"))) << date;
    const uint32_t number = GetBuildTime();
    EXPECT_GE(number / 10000, 2024U);
    EXPECT_GE(number / 100 % 100, 1U);
    EXPECT_LE(number / 100 % 100, 12U);
    EXPECT_GE(number % 100, 1U);
    EXPECT_LE(number % 100, 31U);
}

} // namespace
