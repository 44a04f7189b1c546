#include "utils/LogFormat.h"

#include <cstdlib>
#include <limits>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

constexpr auto kOctober = 1761207330s; // 2025-10-23T08:15:30 UTC
constexpr auto kWinter = 1736942400s;  // 2025-01-15T12:00:00 UTC
constexpr auto kSummer = 1752580800s;  // 2025-07-15T12:00:00 UTC

std::string Text(std::chrono::nanoseconds sinceEpoch) {
    char text[limlog::Time::kMaxLength];
    const size_t length = limlog::Time(limlog::Time::TimePoint(sinceEpoch)).formatMilli(text);
    return {text, length};
}

// Runs `action` on a new thread, which has read nothing of its time zone yet, in the zone `zone`.
template <typename Action> void InZone(const char* zone, Action action) {
    const char* old = std::getenv("TZ");
    const std::string restored = old != nullptr ? old : "";
    setenv("TZ", zone, 1);
    tzset();
    std::thread(action).join();
    if (old != nullptr) {
        setenv("TZ", restored.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

std::string TextInZone(const char* zone, std::chrono::nanoseconds sinceEpoch) {
    std::string text;
    InZone(zone, [&] { text = Text(sinceEpoch); });
    return text;
}

std::string UInt(uint64_t value) {
    char text[limlog::kMaxDigits];
    return {text, limlog::formatUInt(value, text)};
}

std::string Wide(uint64_t value, size_t width) {
    char text[limlog::kMaxDigits];
    return {text, limlog::formatUIntWidth(value, text, width)};
}

TEST(LogFormat, IntegersOfEachLength) {
    EXPECT_EQ(UInt(0), "0");
    EXPECT_EQ(UInt(9), "9");
    EXPECT_EQ(UInt(10), "10");
    EXPECT_EQ(UInt(99), "99");
    EXPECT_EQ(UInt(100), "100");
    EXPECT_EQ(UInt(1000), "1000");
    EXPECT_EQ(UInt(90807), "90807");
    EXPECT_EQ(UInt(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
}

TEST(LogFormat, EveryDigitPair) {
    for (uint64_t i = 0; i < 100; ++i) {
        EXPECT_EQ(UInt(100 + i), std::to_string(100 + i));
    }
}

TEST(LogFormat, WidthPadsWithLeadingZeros) {
    EXPECT_EQ(Wide(7, 2), "07");
    EXPECT_EQ(Wide(0, 3), "000");
    EXPECT_EQ(Wide(42, 2), "42");
    EXPECT_EQ(Wide(2025, 4), "2025");
}

TEST(LogFormat, WidthKeepsTheMostSignificantDigits) {
    EXPECT_EQ(Wide(1234567, 3), "123");
    EXPECT_EQ(Wide(1800, 2), "18");
    EXPECT_EQ(Wide(18446744073709551615ULL, 1), "1");
}

TEST(LogFormat, UtcTimeEndsInZ) {
    EXPECT_EQ(TextInZone("UTC", kOctober + 123ms), "2025-10-23T08:15:30.123Z");
}

TEST(LogFormat, WholeSecondHasNoFraction) {
    EXPECT_EQ(TextInZone("UTC", kOctober), "2025-10-23T08:15:30Z");
}

TEST(LogFormat, FractionIsTheFirstThreeDigitsOfTheNanosecondCount) {
    EXPECT_EQ(TextInZone("UTC", kOctober + 123456789ns), "2025-10-23T08:15:30.123Z");
    EXPECT_EQ(TextInZone("UTC", kOctober + 999999999ns), "2025-10-23T08:15:30.999Z");
    EXPECT_EQ(TextInZone("UTC", kOctober + 1234567ns), "2025-10-23T08:15:30.123Z");
    EXPECT_EQ(TextInZone("UTC", kOctober + 1000ns), "2025-10-23T08:15:30.100Z");
}

TEST(LogFormat, FractionOfAFewNanosecondsIsFilledToThreeDigits) {
    EXPECT_EQ(TextInZone("UTC", kOctober + 5ns), "2025-10-23T08:15:30.005Z");
    EXPECT_EQ(TextInZone("UTC", kOctober + 12ns), "2025-10-23T08:15:30.012Z");
}

TEST(LogFormat, OffsetEastAndWest) {
    EXPECT_EQ(TextInZone("CET-1", kOctober), "2025-10-23T09:15:30+01:00");
    EXPECT_EQ(TextInZone("EST5", kOctober), "2025-10-23T03:15:30-05:00");
    EXPECT_EQ(TextInZone("ZZZ-14", kOctober), "2025-10-23T22:15:30+14:00");
}

TEST(LogFormat, RestOfTheOffsetIsItsSecondsCutToTwoDigits) {
    EXPECT_EQ(TextInZone("IST-5:30", kOctober), "2025-10-23T13:45:30+05:18");
    EXPECT_EQ(TextInZone("NPT-5:45", kOctober), "2025-10-23T14:00:30+05:27");
    EXPECT_EQ(TextInZone("NST3:30", kOctober), "2025-10-23T04:45:30-03:18");
    EXPECT_EQ(TextInZone("LMT-0:00:07", kOctober), "2025-10-23T08:15:37+00:07");
}

TEST(LogFormat, OffsetIsReadOncePerThreadAndDoesNotFollowSummerTime) {
    InZone("CET-1CEST,M3.5.0,M10.5.0/3", [] {
        EXPECT_EQ(Text(kWinter), "2025-01-15T13:00:00+01:00");
        EXPECT_EQ(Text(kSummer), "2025-07-15T14:00:00+01:00");
        std::thread([] { EXPECT_EQ(Text(kSummer), "2025-07-15T14:00:00+02:00"); }).join();
    });
}

TEST(LogFormat, SummerTimeBeginsAndEndsAtTheVerySecond) {
    constexpr auto kBegin = 1743296400s; // 2025-03-30T01:00:00 UTC
    constexpr auto kEnd = 1761440400s;   // 2025-10-26T01:00:00 UTC
    InZone("CET-1CEST,M3.5.0,M10.5.0/3", [=] {
        EXPECT_EQ(Text(kBegin - 1s), "2025-03-30T01:59:59+01:00");
        EXPECT_EQ(Text(kBegin), "2025-03-30T03:00:00+01:00");
        EXPECT_EQ(Text(kEnd - 1s), "2025-10-26T02:59:59+01:00");
        EXPECT_EQ(Text(kEnd), "2025-10-26T02:00:00+01:00");
    });
}

TEST(LogFormat, TheTimeZoneIsReadOnceInAQuarterOfAnHour) {
    InZone("UTC", [] {
        EXPECT_EQ(Text(kOctober), "2025-10-23T08:15:30Z");
        setenv("TZ", "CET-1", 1);
        tzset();
        EXPECT_EQ(Text(kOctober - 30s), "2025-10-23T08:15:00Z");
        EXPECT_EQ(Text(kOctober + 14min + 29s), "2025-10-23T08:29:59Z");
        EXPECT_EQ(Text(kOctober + 14min + 30s), "2025-10-23T09:30:00Z");
        EXPECT_EQ(Text(kOctober - 31s), "2025-10-23T09:14:59Z");
    });
}

TEST(LogFormat, DaysOfALeapYear) {
    constexpr auto kLeapDay = 1709251199s; // 2024-02-29T23:59:59 UTC
    EXPECT_EQ(TextInZone("UTC", kLeapDay), "2024-02-29T23:59:59Z");
    EXPECT_EQ(TextInZone("UTC", kLeapDay + 1s), "2024-03-01T00:00:00Z");
    EXPECT_EQ(TextInZone("EST5", kLeapDay + 1s), "2024-02-29T19:00:00-05:00");
}

TEST(LogFormat, TimeGoesForwardAndBackWithinAThread) {
    InZone("UTC", [] {
        EXPECT_EQ(Text(kOctober), "2025-10-23T08:15:30Z");
        EXPECT_EQ(Text(kOctober + 1s), "2025-10-23T08:15:31Z");
        EXPECT_EQ(Text(kOctober + 16h), "2025-10-24T00:15:30Z");
        EXPECT_EQ(Text(kOctober), "2025-10-23T08:15:30Z");
    });
}

TEST(LogFormat, TimesAtAndBeforeTheEpoch) {
    EXPECT_EQ(TextInZone("UTC", 0ns), "1970-01-01T00:00:00Z");
    EXPECT_EQ(TextInZone("UTC", -1ns), "1969-12-31T23:59:59.999Z");
}

} // namespace
