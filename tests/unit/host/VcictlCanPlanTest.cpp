#include "host/Tool.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace {

constexpr char kFrame[] = "123#1122334455667788";

// A trace of `count` frames of 10 ms, one of them `late` microseconds late.
std::string Trace(int count, int late) {
    std::string text = "# queued start end channel frame origin result\n";
    for (int i = 0; i < count; ++i) {
        const int start = 50'000 + i * 10'000 + (i == 2 ? late : 0);
        const std::string us = std::to_string(start) + "000 ";
        text += us + us + std::to_string(start + 234) + "000 can0 " + kFrame + " bcm ok\n";
    }
    return text;
}

class VcictlCanPlan : public testing::Test {
  protected:
    ToolResult Plan(const std::vector<std::string>& more) const {
        std::vector<std::string> words{"can", "plan", std::string(kFrame) + "@10ms", "--bitrate",
                                       "500k"};
        words.insert(words.end(), more.begin(), more.end());
        return RunTool(words);
    }

    TempDir dir_;
};

TEST_F(VcictlCanPlan, NeedsNoDevice) {
    const auto result = Plan({"can1:124#R@20ms", "--device", "/no/such/device"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "bus   id          period us  frame us  offset us  first us conflicts\n"
                          "can0  123             10000       234          0     20000         0\n"
                          "can1  124#R           20000        94        240     40240         0\n"
                          "window 20000 us\n"
                          "can0 load 2.34 %\n"
                          "can1 load 0.47 %\n");
}

TEST_F(VcictlCanPlan, ATraceStandsBesideThePlan) {
    dir_.Write("trace", Trace(5, 30) + "# lost 2\n");
    const auto result = Plan({"--trace", dir_ / "trace"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(
        result.out,
        HasSubstr(
            "measured, times in us; - is not measured\n"
            "bus   id            due   seen  lost  1st off    offset     period  median     p99    "
            " "
            "max    wait collisions\n"
            "can0  123             5      5     0      0.0       0.0    10000.0     0.0    30.0    "
            "30.0     0.0          0\n"
            "can0 load 2.91 %\n"
            "the trace lost 2 frames: due, lost and spacing may be wrong\n"));
}

TEST_F(VcictlCanPlan, WhatWasNotSeenHasDashes) {
    dir_.Write("trace", "");
    EXPECT_THAT(Plan({"--trace", dir_ / "trace"}).out,
                HasSubstr("\ncan0  123             -      0     0        -         -          -    "
                          "   -       -       -       -          0\n"));
}

TEST_F(VcictlCanPlan, Json) {
    dir_.Write("trace", Trace(5, 30));
    EXPECT_EQ(Plan({"--json"}).out,
              "{\"window_us\":10000,\"load\":{\"can0\":0.0234},\"tasks\":[{\"channel\":\"can0\","
              "\"id\":\"123\",\"period_us\":10000,\"frame_us\":234,\"offset_us\":0,\"first_us\":"
              "20000,\"conflicts\":0}]}\n");
    EXPECT_THAT(Plan({"--json", "--trace", dir_ / "trace"}).out,
                HasSubstr("\"measured\":{\"due\":5,\"seen\":5,\"lost\":0,\"first_off_grid_ns\":0,"
                          "\"offset_ns\":0,\"period_ns\":10000000,\"spacing_median_ns\":0,"
                          "\"spacing_p99_ns\":30000,\"spacing_max_ns\":30000,\"worst_wait_ns\":0,"
                          "\"collisions\":0}}],\"base_ns\":50000000,"));
}

TEST_F(VcictlCanPlan, JitterBecomesAStatus) {
    dir_.Write("trace", Trace(5, 30));
    EXPECT_EQ(Plan({"--trace", dir_ / "trace", "--max-jitter", "30us"}).status, 0);
    auto result = Plan({"--trace", dir_ / "trace", "--max-jitter", "29us"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "vcictl: can0 123: jitter 30.0 us, above 29us\n");

    dir_.Write("short", Trace(1, 0));
    result = Plan({"--trace", dir_ / "short", "--max-jitter", "1s"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "vcictl: can0 123: seen 1 times, jitter not measured\n");

    std::string gap = Trace(5, 0);
    gap.erase(gap.find("70000000 "), gap.find("80000000 ") - gap.find("70000000 "));
    dir_.Write("gap", gap);
    result = Plan({"--trace", dir_ / "gap", "--max-jitter", "1s"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "vcictl: can0 123: 1 of 5 frames lost\n");
}

TEST_F(VcictlCanPlan, AWrongJitterIsToldBeforeAnythingIsWritten) {
    dir_.Write("trace", Trace(5, 0));
    const auto result =
        Plan({"--trace", dir_ / "trace", "--svg", dir_ / "plan.svg", "--max-jitter", "200"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vcictl: --max-jitter: '200' is no time; write it with its unit, as "
                          "200us, 10ms or 1s\n");
    EXPECT_FALSE(std::filesystem::exists(dir_ / "plan.svg"));
}

TEST_F(VcictlCanPlan, ATraceMayHoldFramesOfErrorPassiveSenders) {
    dir_.Write("trace", Trace(5, 0) + "90001000 90001000 90002000 can0 124##311 raw ok\n");
    const auto result = Plan({"--trace", dir_ / "trace"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("\ncan0  123             5      5     0 "));
}

TEST_F(VcictlCanPlan, DrawsAPicture) {
    dir_.Write("trace", Trace(5, 0));
    EXPECT_EQ(Plan({"--trace", dir_ / "trace", "--svg", dir_ / "plan.svg"}).status, 0);
    EXPECT_THAT(dir_.Read("plan.svg"), HasSubstr(">can0 measured</text>"));
}

TEST_F(VcictlCanPlan, FilesThatCannotBeUsedAreNamed) {
    auto result = Plan({"--trace", "/no/such/trace"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "vcictl: cannot read /no/such/trace: No such file or directory\n");
    result = Plan({"--trace", dir_ / "."});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("Is a directory"));
    result = Plan({"--svg", "/no/such/folder/plan.svg"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("cannot write /no/such/folder/plan.svg: No such file"));
    dir_.Write("bad", "1 2 3\n");
    result = Plan({"--trace", dir_ / "bad"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "vcictl: " + (dir_ / "bad") +
                              ", line 1: not the seven words 'queued start end channel frame "
                              "origin result'\n");
}

TEST_F(VcictlCanPlan, WrongUsage) {
    EXPECT_EQ(Plan({"--max-jitter", "1ms"}).status, 2);
    EXPECT_EQ(RunTool({"can", "plan", "123#@1ms"}).status, 2);
    EXPECT_EQ(RunTool({"can", "plan", "--bitrate", "500k"}).status, 2);
    EXPECT_EQ(Plan({"124##0@1ms"}).err,
              "vcictl: there are CAN FD frames: give --dbitrate as well\n");
    EXPECT_EQ(Plan({"--channel", "lin0"}).status, 2);
}

} // namespace
