#include "vcihost/PlanReceipt.h"

#include "vcihost/Notation.h"
#include "vcihost/PlanSvg.h"

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vcihost;
using testing::HasSubstr;
using testing::Not;

namespace {

BusTrace Trace(const std::string& text) {
    std::istringstream input(text);
    return BusTrace::Read(input, "trace");
}

std::string Fault(const std::string& text) {
    try {
        Trace(text);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "no error";
}

CanPlan Plan(const std::vector<std::string>& texts) {
    std::vector<CanTask> tasks;
    for (const std::string& text : texts) {
        tasks.push_back(ParseChannelTask(text, 0));
    }
    return PlanCanTasks(tasks, {500000, 2000000});
}

// A line of a frame that went out at once and took 234 us. Times in microseconds.
std::string Line(int64_t start, const char* frame, int64_t wait = 0, const char* more = "bcm ok") {
    const auto time = [](int64_t us) { return std::to_string(us * 1000) + " "; };
    return time(start - wait) + time(start) + time(start + 234) + "can0 " + frame + " " + more +
           "\n";
}

constexpr char kFrame[] = "123#1122334455667788";
constexpr char kOther[] = "124#1122334455667788";

TEST(BusTrace, ReadsItsLines) {
    const BusTrace trace = Trace("# a comment\n"
                                 "1234567890 1234567900 1234801900 can0 123#DEADBEEF bcm ok\n"
                                 "\n"
                                 "# lost 7\n"
                                 "5 6 7 can3 00000123#R4 raw noack\n");
    ASSERT_EQ(trace.entries.size(), 2U);
    EXPECT_EQ(trace.lost, 7U);
    const BusTrace::Entry& first = trace.entries[0]; // in order of the start
    EXPECT_EQ(first.queued, 5);
    EXPECT_EQ(first.start, 6);
    EXPECT_EQ(first.end, 7);
    EXPECT_EQ(first.channel, 3);
    EXPECT_FALSE(first.periodic);
    EXPECT_FALSE(first.ok);
    const BusTrace::Entry& second = trace.entries[1];
    EXPECT_EQ(second.start, 1234567900);
    EXPECT_EQ(CanFrameText(second.frame), "123#DEADBEEF");
    EXPECT_TRUE(second.periodic && second.ok);
}

TEST(BusTrace, AWrongLineIsNamed) {
    EXPECT_EQ(Fault("# x\n1 2 3 can0 123#\n"),
              "trace, line 2: not the seven words 'queued start end channel frame origin result'");
    EXPECT_EQ(Fault("1 2 3 can0 123# bcm ok more\n"),
              "trace, line 1: not the seven words 'queued start end channel frame origin result'");
    EXPECT_EQ(Fault("1 x 3 can0 123# bcm ok\n"), "trace, line 1: 'x' is no time in nanoseconds");
    EXPECT_EQ(Fault("2 1 3 can0 123# bcm ok\n"),
              "trace, line 1: queued, start and end do not follow each other");
    EXPECT_THAT(Fault("1 2 3 can6 123# bcm ok\n"), HasSubstr("trace, line 1: 'can6'"));
    EXPECT_THAT(Fault("1 2 3 can0 12# bcm ok\n"), HasSubstr("trace, line 1: frame '12#'"));
}

TEST(BusTrace, AFrameHadToWaitWhenItsBusWasBusy) {
    const BusTrace trace = Trace("0 0 100 can0 001# bcm ok\n"
                                 "50 100 200 can0 002# bcm ok\n"
                                 "210 220 300 can0 003# bcm ok\n"
                                 "50 230 260 can1 004# bcm ok\n");
    EXPECT_FALSE(trace.HadToWait(0));
    EXPECT_TRUE(trace.HadToWait(1));
    EXPECT_FALSE(trace.HadToWait(2)) << "late, but not for another frame";
    EXPECT_FALSE(trace.HadToWait(3)) << "another bus";
}

TEST(PlanReceipt, APunctualFrame) {
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms"});
    const auto receipt = PlanReceipt::Make(
        plan, Trace(Line(5000, kFrame) + Line(15000, kFrame) + Line(25000, kFrame)));
    ASSERT_EQ(receipt.tasks.size(), 1U);
    const TaskReceipt& task = receipt.tasks[0];
    EXPECT_EQ(task.due, 3U);
    EXPECT_EQ(task.seen, 3U);
    EXPECT_EQ(task.lost, 0U);
    EXPECT_EQ(task.collisions, 0U);
    EXPECT_EQ(task.firstOffGrid, 0);
    EXPECT_EQ(task.offset, 0);
    EXPECT_EQ(task.period, 10'000'000);
    EXPECT_EQ(task.spacingMax, 0);
    EXPECT_EQ(task.worstWait, 0);
    EXPECT_EQ(receipt.base, 5'000'000);
    EXPECT_DOUBLE_EQ(receipt.load.at(0), 702.0 / 20234);
}

TEST(PlanReceipt, WhatWasNotSeenIsNotMeasured) {
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms"});
    // Not acknowledged, not periodic, another channel, another kind: none of them is the task's.
    const auto receipt = PlanReceipt::Make(
        plan, Trace(Line(1000, kFrame, 0, "bcm noack") + Line(2000, kFrame, 0, "raw ok") +
                    "3 3 4 can1 123#1122334455667788 bcm ok\n3 3 4 can0 123#R8 bcm ok\n"
                    "3 3 4 can0 00000123# bcm ok\n3 3 4 can0 123##0 bcm ok\n"));
    const TaskReceipt& task = receipt.tasks[0];
    EXPECT_EQ(task.seen, 0U);
    EXPECT_FALSE(task.due || task.firstOffGrid || task.offset || task.period || task.spacingMax ||
                 task.worstWait);
    EXPECT_FALSE(receipt.base);
}

TEST(PlanReceipt, OneFrameHasNoSpacing) {
    const auto receipt =
        PlanReceipt::Make(Plan({std::string(kFrame) + "@10ms"}), Trace(Line(1000, kFrame)));
    EXPECT_EQ(receipt.tasks[0].seen, 1U);
    EXPECT_FALSE(receipt.tasks[0].spacingMax || receipt.tasks[0].period);
    EXPECT_EQ(receipt.tasks[0].offset, 0);
}

TEST(PlanReceipt, TheGridHasItsMedianInTheFirstPlannedTask) {
    // The first start is 300 us late, most are punctual.
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms", std::string(kOther) + "@10ms"});
    std::string text = Line(100'300, kFrame);
    for (int i = 1; i < 6; ++i) {
        text += Line(100'000 + i * 10'000, kFrame);
    }
    for (int i = 0; i < 6; ++i) {
        text += Line(100'250 + i * 10'000, kOther);
    }
    const auto receipt = PlanReceipt::Make(plan, Trace(text));
    EXPECT_EQ(receipt.base, 100'000'000);
    EXPECT_EQ(receipt.tasks[0].firstOffGrid, 300'000);
    EXPECT_EQ(receipt.tasks[0].offset, 0);
    EXPECT_EQ(receipt.tasks[1].firstOffGrid, 10'000);
    EXPECT_EQ(receipt.tasks[1].offset, 250'000) << "planned 240 us";
}

TEST(PlanReceipt, TheBaseIsTheOneThatAllTasksAgreeWith) {
    // The longer period fits only one of the two places that the shorter one leaves.
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms", std::string(kOther) + "@20ms"});
    ASSERT_EQ(plan.tasks[1].offsetUs, 240U);
    std::string text;
    for (int i = 0; i < 8; ++i) {
        text += Line(5'000 + i * 10'000, kFrame);
    }
    for (int i = 0; i < 4; ++i) {
        text += Line(15'240 + i * 20'000, kOther);
    }
    const auto receipt = PlanReceipt::Make(plan, Trace(text));
    EXPECT_EQ(receipt.base, -5'000'000) << "the window has 20 ms";
    EXPECT_EQ(receipt.tasks[1].offset, 240'000);
    EXPECT_EQ(receipt.tasks[1].firstOffGrid, 0);
}

TEST(PlanReceipt, SpacingHasMedianPercentileAndMaximum) {
    std::string text;
    int64_t start = 0;
    for (int i = 0; i <= 100; ++i) {
        text += Line(start, kFrame, 0);
        // 97 spacings are whole, two are 20 us long, one is 50 us short.
        start += i < 97 ? 10'000 : (i < 99 ? 10'020 : 9'950);
    }
    const auto task =
        PlanReceipt::Make(Plan({std::string(kFrame) + "@10ms"}), Trace(text)).tasks[0];
    EXPECT_EQ(task.period, 10'000'000);
    EXPECT_EQ(task.spacingMedian, 0);
    EXPECT_EQ(task.spacingP99, 20'000);
    EXPECT_EQ(task.spacingMax, 50'000);
}

TEST(PlanReceipt, AMissingFrameIsLostAndNoJitter) {
    const auto task = PlanReceipt::Make(Plan({std::string(kFrame) + "@10ms"}),
                                        Trace(Line(0, kFrame) + Line(10'000, kFrame) +
                                              Line(30'010, kFrame) + Line(40'010, kFrame)))
                          .tasks[0];
    EXPECT_EQ(task.due, 5U);
    EXPECT_EQ(task.seen, 4U);
    EXPECT_EQ(task.lost, 1U);
    EXPECT_EQ(task.spacingMax, 10'000);
}

TEST(PlanReceipt, JitterAtTheEndsDoesNotChangeWhatIsDue) {
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms"});
    const auto early = PlanReceipt::Make(plan, Trace(Line(30, kFrame) + Line(10'000, kFrame)));
    EXPECT_EQ(early.tasks[0].due, 2U);
    const auto late = PlanReceipt::Make(plan, Trace(Line(0, kFrame) + Line(10'030, kFrame)));
    EXPECT_EQ(late.tasks[0].due, 2U);
}

TEST(PlanReceipt, ATaskThatStopsEarlyLoses) {
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms", std::string(kOther) + "@10ms"});
    std::string text = Line(0, kFrame);
    for (int i = 0; i < 4; ++i) {
        text += Line(240 + i * 10'000, kOther);
    }
    const auto receipt = PlanReceipt::Make(plan, Trace(text));
    EXPECT_EQ(receipt.tasks[0].due, 4U);
    EXPECT_EQ(receipt.tasks[0].lost, 3U);
    EXPECT_EQ(receipt.tasks[1].lost, 0U);
}

TEST(PlanReceipt, WaitsAndCollisions) {
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms"});
    const auto task =
        PlanReceipt::Make(plan, Trace(Line(0, "001#11", 0, "raw ok") + Line(234, kFrame, 134) +
                                      Line(10'240, kFrame, 5)))
            .tasks[0];
    EXPECT_EQ(task.collisions, 1U);
    EXPECT_EQ(task.worstWait, 134'000);
}

TEST(PlanReceipt, APeriodThatDoesNotDivideTheWindowHasNoPlaceInIt) {
    // 7, 11 and 13 ms have no common multiple within the longest window.
    const CanPlan plan = Plan({"007#@7ms", "00B#@11ms", "00D#@13ms"});
    ASSERT_EQ(plan.windowUs, 200000U);
    const auto receipt =
        PlanReceipt::Make(plan, Trace(Line(0, "007#") + Line(7'000, "007#") + Line(500, "00B#")));
    EXPECT_FALSE(receipt.base);
    EXPECT_FALSE(receipt.tasks[0].offset);
    EXPECT_EQ(receipt.tasks[0].period, 7'000'000);
}

TEST(PlanSvg, APlanIsOneLaneAChannelAndTheSameEachTime) {
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms", "can1:124#11@10ms"});
    const std::string svg = PlanSvg(plan);
    EXPECT_EQ(svg, PlanSvg(plan));
    EXPECT_THAT(svg, HasSubstr("one window of 10 ms"));
    EXPECT_THAT(svg, HasSubstr(">can0 planned</text>"));
    EXPECT_THAT(svg, HasSubstr(">can1 planned</text>"));
    EXPECT_THAT(svg, Not(HasSubstr("measured")));
    EXPECT_THAT(svg, HasSubstr("<title>123 0.000 to 0.234 ms</title>"));
    EXPECT_THAT(svg, HasSubstr("<title>124 0.240 to "));
    EXPECT_THAT(svg, HasSubstr("y=\"192\">123</text>")) << "the legend";
    EXPECT_THAT(svg, Not(HasSubstr("class=\"hit")));
    EXPECT_TRUE(svg.starts_with("<svg xmlns=\"http://www.w3.org/2000/svg\""));
    EXPECT_TRUE(svg.ends_with("</svg>\n"));
}

TEST(PlanSvg, ATraceHasALaneOfItsFirstFullWindow) {
    const CanPlan plan = Plan({std::string(kFrame) + "@10ms", std::string(kOther) + "@10ms"});
    const BusTrace trace = Trace(
        Line(1'000, kFrame) + Line(11'000, kFrame) + Line(11'234, kOther, 100) +
        Line(21'000, kFrame) + Line(21'240, kOther) + Line(31'000, kFrame) + Line(31'240, kOther));
    const auto receipt = PlanReceipt::Make(plan, trace);
    const std::string svg = PlanSvg(plan, &trace, &receipt);
    EXPECT_THAT(svg, HasSubstr(">can0 measured</text>"));
    EXPECT_THAT(svg, HasSubstr("<title>124 0.240 to 0.474 ms</title>"));
    EXPECT_THAT(svg, Not(HasSubstr("class=\"hit"))) << "the collision lies in an earlier window";
}

TEST(PlanSvg, FramesThatMeetAreMarked) {
    std::vector<std::string> texts;
    for (int i = 0; i < 6; ++i) {
        texts.push_back("10" + std::to_string(i) + "#1122334455667788@1ms");
    }
    EXPECT_THAT(PlanSvg(Plan(texts)), HasSubstr("class=\"hit\""));
}

} // namespace
