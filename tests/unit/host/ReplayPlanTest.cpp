#include "vcihost/ReplayPlan.h"

#include "vcihost/Notation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vcihost;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

constexpr uint64_t kUs = 1000;
constexpr uint64_t kSecond = 1'000'000'000;

struct Line {
    uint64_t time;
    std::string interface;
};

Trace MakeTrace(const std::vector<Line>& lines) {
    Trace trace;
    trace.path = "a.log";
    uint64_t number = 0;
    for (const Line& line : lines) {
        trace.frames.push_back(
            {line.time, ++number, trace.Interface(line.interface), ParseCanFrame("123#11")});
    }
    return trace;
}

ReplayPlan Plan(const std::vector<Line>& lines, const ReplayOptions& options = {}) {
    Trace trace = MakeTrace(lines);
    return ReplayPlan::Make(trace, options);
}

std::vector<uint32_t> Intervals(const ReplayPlan& plan) {
    std::vector<uint32_t> intervals;
    for (const ReplayFrame& frame : plan.frames) {
        intervals.push_back(frame.interval);
    }
    return intervals;
}

TEST(ReplayPlan, IntervalsAreThoseBetweenFrames) {
    const auto plan = Plan({{7 * kSecond, "can0"},
                            {7 * kSecond + 100 * kUs, "can5"},
                            {7 * kSecond + 100 * kUs, "can0"},
                            {8 * kSecond, "can0"}});
    EXPECT_THAT(Intervals(plan), ElementsAre(0, 100, 0, 999'900));
    EXPECT_EQ(plan.frames[1].channel, 5);
    EXPECT_EQ(plan.duration, 1'000'000U);
    EXPECT_THAT(plan.channels, ElementsAre(0, 5));
}

TEST(ReplayPlan, WhatIsCutOffATimeDoesNotAddUp) {
    std::vector<Line> lines;
    for (uint64_t i = 0; i <= 1000; ++i) {
        lines.push_back({i * 1500, "can0"}); // 1.5 us apart
    }
    EXPECT_EQ(Plan(lines).duration, 1500U);
}

TEST(ReplayPlan, GapsAreKeptSkippedAndBridged) {
    const std::vector<Line> lines{{0, "can0"},           {200 * kUs, "can0"},
                                  {5 * kSecond, "can0"}, {4 * kSecond, "can0"},
                                  {6 * kSecond, "can0"}, {7 * kSecond, "can0"}};
    ReplayOptions options;
    EXPECT_THAT(Intervals(Plan(lines, options)),
                ElementsAre(0, 200, 4'999'800, 0, 2'000'000, 1'000'000));
    options.skip = std::chrono::seconds(1);
    auto plan = Plan(lines, options);
    EXPECT_THAT(Intervals(plan), ElementsAre(0, 200, 0, 0, 0, 1'000'000));
    EXPECT_EQ(plan.skipped, 2U);
    EXPECT_EQ(plan.skippedTime, 6'999'800U);
    EXPECT_EQ(plan.backward, 1U);
    EXPECT_EQ(plan.duration, 1'000'200U);
    options.gap = std::chrono::milliseconds(1);
    EXPECT_THAT(Intervals(Plan(lines, options)), ElementsAre(0, 1000, 1000, 1000, 1000, 1'000'000));
    options.ignoreTimes = true;
    plan = Plan(lines, options);
    EXPECT_THAT(Intervals(plan), ElementsAre(0, 1000, 1000, 1000, 1000, 1000));
    EXPECT_EQ(plan.skipped, 0U);
}

TEST(ReplayPlan, ChannelsByName) {
    ReplayOptions options;
    AddReplayOutput(options, "can2=can0");
    AddReplayOutput(options, "9=vcan0");
    const auto plan = Plan({{0, "can0"}, {0, "vcan0"}, {0, "can4"}}, options);
    ASSERT_EQ(plan.frames.size(), 2U);
    EXPECT_EQ(plan.frames[0].channel, 2);
    EXPECT_EQ(plan.frames[1].channel, 1);
    EXPECT_EQ(plan.unmapped, 1U);
    EXPECT_THAT([&] { AddReplayOutput(options, "can3=can0"); },
                ThrowsMessage<NotationError>("'can3=can0': can0 has a channel already"));
    EXPECT_THAT([&] { AddReplayOutput(options, "can3"); },
                ThrowsMessage<NotationError>(
                    "'can3' is not OUT=IN; can2=can0 plays frames of can0 on can2"));
    EXPECT_THAT([&] { AddReplayOutput(options, "can6=x"); },
                ThrowsMessage<NotationError>(HasSubstr("'can6' is no CAN channel")));
}

TEST(ReplayPlan, WhatCannotBePlayedIsRefused) {
    EXPECT_THAT(
        [] {
            Plan({{0, "can0"}, {0, "can6"}});
        },
        ThrowsMessage<NotationError>("a.log, line 2: the device has no channel 'can6'; say "
                                     "where its frames go: can0=can6"));
    ReplayOptions options;
    AddReplayOutput(options, "can0=can7");
    EXPECT_THAT(
        [&] {
            Plan({{0, "can0"}, {0, "can1"}}, options);
        },
        ThrowsMessage<NotationError>("a.log: no frame of 'can7'; it has can0, can1"));
    EXPECT_THAT([] { Plan({}); }, ThrowsMessage<NotationError>("a.log: no frame that can be sent"));
}

TEST(ReplayPlan, TheLongestIntervalIsThatOfTheDevice) {
    constexpr uint64_t kLongest = 0x7FFFFFFF * kUs;
    EXPECT_THAT(Intervals(Plan({{0, "can0"}, {kLongest, "can0"}})), ElementsAre(0, 0x7FFFFFFF));
    EXPECT_THAT(
        [] {
            Plan({{0, "can0"}, {kLongest + kUs, "can0"}});
        },
        ThrowsMessage<NotationError>(
            "a.log, line 2: 2147.483648 s behind the frame before; the device waits at "
            "most 2147.483647 s, and -s skips longer intervals"));
}

} // namespace
