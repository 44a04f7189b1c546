#include "vcihost/CanPlan.h"

#include "vcihost/Notation.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

constexpr net::CanBitRates kRates{500000, 2000000};

std::vector<CanTask> Tasks(const std::vector<std::string>& texts) {
    std::vector<CanTask> tasks;
    for (const std::string& text : texts) {
        tasks.push_back(ParseChannelTask(text, 0));
    }
    return tasks;
}

std::string Fault(const std::string& text) {
    try {
        ParseChannelTask(text, 0);
    } catch (const NotationError& error) {
        return error.what();
    }
    return "no error";
}

TEST(CanTask, AFrameAndItsPeriod) {
    const CanTask task = ParseCanTask("123#DEADBEEF@10ms", 3);
    EXPECT_EQ(task.channel, 3);
    EXPECT_EQ(task.periodMs, 10);
    EXPECT_EQ(CanFrameText(task.frame), "123#DEADBEEF");
    EXPECT_EQ(ParseCanTask("123#@1s", 0).periodMs, 1000);
    EXPECT_EQ(ParseCanTask("123#@65535ms", 0).periodMs, 65535);
    EXPECT_EQ(ParseCanTask("123#@2000us", 0).periodMs, 2);
}

TEST(CanTask, AChannelMayStandInFront) {
    EXPECT_EQ(ParseChannelTask("can4:123#@1ms", 0).channel, 4);
    EXPECT_EQ(ParseChannelTask("123#@1ms", 2).channel, 2);
    EXPECT_THROW(ParseChannelTask("can9:123#@1ms", 0), NotationError);
}

TEST(CanTask, WrongPeriods) {
    EXPECT_EQ(Fault("123#11"), "frame '123#11': no period; write it as 123#11@10ms");
    for (const char* const period : {"0ms", "65536ms", "1500us", "0.5ms"}) {
        EXPECT_EQ(Fault(std::string("123#@") + period),
                  std::string("period: '") + period +
                      "' cannot be sent; the device takes whole milliseconds from 1ms to 65535ms");
    }
    EXPECT_THROW(ParseChannelTask("123#@10", 0), NotationError);
}

TEST(CanTask, AnIdentifierStandsOnceOnAChannel) {
    EXPECT_NO_THROW(CheckDistinct(Tasks({"123#@1ms", "00000123#@1ms", "can1:123#@1ms"})));
    EXPECT_THROW(CheckDistinct(Tasks({"123#@1ms", "123#R@2ms"})), NotationError);
    EXPECT_THROW(CheckDistinct(Tasks({"123#@1ms", "123##0@2ms"})), NotationError);
}

TEST(CanPlan, TheFirstTaskOf10MsStartsTwoWindowsAhead) {
    const CanPlan plan = PlanCanTasks(Tasks({"123#1122334455667788@10ms"}), kRates);
    ASSERT_EQ(plan.tasks.size(), 1U);
    EXPECT_EQ(plan.windowUs, 10000U);
    EXPECT_EQ(plan.tasks[0].durationUs, 234U);
    EXPECT_EQ(plan.tasks[0].offsetUs, 0U);
    EXPECT_EQ(plan.tasks[0].firstDelayUs, 20000U);
    EXPECT_EQ(plan.tasks[0].conflicts, 0U);
    EXPECT_DOUBLE_EQ(plan.Load(0), 0.0234);
    EXPECT_EQ(plan.Load(1), 0);
}

TEST(CanPlan, TheFirstTaskOf5MsStartsAtOnce) {
    EXPECT_EQ(PlanCanTasks(Tasks({"123#1122334455667788@5ms"}), kRates).tasks[0].firstDelayUs, 0U);
}

TEST(CanPlan, TheSecondOfTwoEqualFramesGetsTheNextFreeStep) {
    const CanPlan plan =
        PlanCanTasks(Tasks({"123#1122334455667788@10ms", "124#1122334455667788@10ms"}), kRates);
    EXPECT_EQ(plan.tasks[0].offsetUs, 0U);
    EXPECT_EQ(plan.tasks[1].offsetUs, 240U);
}

TEST(CanPlan, ShortPeriodsComeFirstThenLongFrames) {
    const CanPlan plan =
        PlanCanTasks(Tasks({"001#@20ms", "002#@10ms", "003#1122334455667788@10ms"}), kRates);
    EXPECT_EQ(CanIdText(plan.tasks[0].task.frame), "003");
    EXPECT_EQ(CanIdText(plan.tasks[1].task.frame), "002");
    EXPECT_EQ(CanIdText(plan.tasks[2].task.frame), "001");
    EXPECT_EQ(plan.windowUs, 20000U);
}

TEST(CanPlan, ACanFdFrameCountsAtTheDataRate) {
    const CanPlan plan = PlanCanTasks(Tasks({"123##1" + std::string(128, '0') + "@10ms"}), kRates);
    EXPECT_EQ(plan.tasks[0].durationUs, 347U);
}

TEST(CanPlan, ChannelsShareOneTimeline) {
    const CanPlan plan = PlanCanTasks(
        Tasks({"can1:123#1122334455667788@10ms", "124#1122334455667788@10ms"}), kRates);
    EXPECT_EQ(plan.tasks[1].offsetUs, 240U);
    EXPECT_EQ(plan.Channels(), (std::vector<uint8_t>{0, 1}));
}

TEST(CanPlan, AFullBusShowsItsConflicts) {
    std::vector<std::string> texts;
    for (int i = 0; i < 6; ++i) {
        texts.push_back("10" + std::to_string(i) + "#1122334455667788@1ms");
    }
    const CanPlan plan = PlanCanTasks(Tasks(texts), kRates);
    EXPECT_EQ(plan.tasks[3].offsetUs, 720U);
    EXPECT_EQ(plan.tasks[3].conflicts, 0U);
    // The window is a line: the fifth runs past its end, where nothing is met.
    EXPECT_EQ(plan.tasks[4].offsetUs, 960U);
    EXPECT_EQ(plan.tasks[4].conflicts, 0U);
    EXPECT_EQ(plan.tasks[5].conflicts, 1U);
    EXPECT_GT(plan.Load(0), 1);
}

TEST(CanPlan, ARequestTakes255Tasks) {
    // The 256th task has the shortest period, but is planned behind the first request.
    std::vector<CanTask> tasks;
    for (uint32_t id = 0; id < 256; ++id) {
        CanTask task;
        task.frame.id = id;
        task.periodMs = id == 255 ? 50 : 100;
        tasks.push_back(task);
    }
    const CanPlan plan = PlanCanTasks(tasks, kRates);
    ASSERT_EQ(plan.tasks.size(), 256U);
    EXPECT_EQ(plan.tasks.back().periodUs, 50000U);
}

TEST(CanPlan, AFrameShorterThanAMicrosecondIsRefused) {
    EXPECT_THROW(PlanCanTasks(Tasks({"123#@1ms"}), {1000000000, 0}), NotationError);
}

} // namespace
