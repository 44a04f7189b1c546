#include "net/planner/OffsetPlanner.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace {

using net::OffsetPlanner;
using Tasks = std::vector<OffsetPlanner::Task>;

class OffsetPlannerTest : public testing::Test {
  protected:
    static OffsetPlanner::Task Task(uint32_t id, uint32_t periodMs, uint32_t us = 234) {
        OffsetPlanner::Task task;
        task.id = id;
        task.period_us = periodMs * 1000;
        task.transmission_time_us = us;
        return task;
    }

    // Plans a batch at `now`, and gives it in the order of the starts.
    Tasks Plan(Tasks tasks) {
        Tasks started;
        planner.Plan(
            tasks, [this] { return now; }, [&](const auto& t) { started.push_back(t); });
        return started;
    }

    OffsetPlanner::Task Plan(const OffsetPlanner::Task& task) { return Plan(Tasks{task}).at(0); }

    OffsetPlanner planner;
    uint64_t now = 1000000;
};

TEST_F(OffsetPlannerTest, TheFirst10MsTaskStartsAfterTwiceItsWindow) {
    const auto task = Plan(Task(0x123, 10));
    EXPECT_EQ(planner.WindowUs(), 10000U);
    EXPECT_EQ(task.offset_us, 0U);
    EXPECT_EQ(task.kernel_offset_us, 20000U);
}

TEST_F(OffsetPlannerTest, TheFirst5MsTaskStartsAtOnce) {
    const auto task = Plan(Task(0x123, 5));
    EXPECT_EQ(planner.WindowUs(), 5000U);
    EXPECT_EQ(task.kernel_offset_us, 0U);
}

TEST_F(OffsetPlannerTest, TheSecondTaskTakesTheFirstStepBehindTheFirst) {
    const auto tasks = Plan(Tasks{Task(1, 10), Task(2, 10)});
    EXPECT_EQ(tasks[0].offset_us, 0U);
    EXPECT_EQ(tasks[1].offset_us, 240U);
}

TEST_F(OffsetPlannerTest, TasksThatTouchDoNotConflict) {
    const auto tasks = Plan(Tasks{Task(1, 10, 240), Task(2, 10, 240), Task(3, 10, 240)});
    EXPECT_EQ(tasks[1].offset_us, 240U);
    EXPECT_EQ(tasks[2].offset_us, 480U);
    EXPECT_EQ(tasks[2].conflicts, 0U);
}

TEST_F(OffsetPlannerTest, ATaskIsFittedInBetweenWhenItsEndTouchesTheNext) {
    Plan(Tasks{Task(1, 20, 1000)});
    Plan(Tasks{Task(2, 10, 9000)}); // from 1,000 and from 11,000, both times up to the next
    const auto task = Plan(Task(3, 20, 1000));
    EXPECT_EQ(task.offset_us, 10000U);
    EXPECT_EQ(task.conflicts, 0U);
}

TEST_F(OffsetPlannerTest, TheShortestPeriodChoosesFirstAndOfEqualOnesTheLongestFrame) {
    const auto tasks = Plan(Tasks{Task(1, 100, 300), Task(2, 10, 100), Task(3, 10, 200)});
    EXPECT_EQ(tasks[0].id, 3U);
    EXPECT_EQ(tasks[1].id, 2U);
    EXPECT_EQ(tasks[2].id, 1U);
    EXPECT_EQ(tasks[1].offset_us, 200U);
    EXPECT_EQ(tasks[2].offset_us, 300U);
}

TEST_F(OffsetPlannerTest, AFullBusGivesTheOffsetWithTheFewestConflicts) {
    Plan(Tasks{Task(1, 20, 9900)});
    Plan(Tasks{Task(2, 20, 10000)}); // up to 19,900
    const auto task = Plan(Task(3, 10, 200));
    EXPECT_EQ(task.offset_us, 9900U); // its second instance is free
    EXPECT_EQ(task.conflicts, 1U);
}

TEST_F(OffsetPlannerTest, OfEqualConflictsTheFirstOffsetIsTaken) {
    Plan(Tasks{Task(1, 10, 9990)});
    const auto task = Plan(Task(2, 10, 200));
    EXPECT_EQ(task.offset_us, 0U);
    EXPECT_EQ(task.conflicts, 1U);
}

TEST_F(OffsetPlannerTest, AnIntervalTakesThePlaceOfOneWithTheSameStart) {
    Plan(Tasks{Task(1, 10, 9990)});
    Plan(Task(2, 10, 200)); // at 0 as well
    EXPECT_EQ(Plan(Task(3, 10, 200)).offset_us, 200U);
    planner.Remove(1); // its interval is no longer there to be taken away
    EXPECT_EQ(Plan(Task(4, 10, 200)).offset_us, 400U);
}

TEST_F(OffsetPlannerTest, AnInstanceCountsOneConflictHoweverManyIntervalsItMeets) {
    Plan(Tasks{Task(1, 10, 5000)});
    Plan(Tasks{Task(2, 10, 4990)});
    const auto task = Plan(Task(3, 10, 9000)); // at 0 it meets both, from 5,000 on one
    EXPECT_EQ(task.offset_us, 0U);
    EXPECT_EQ(task.conflicts, 1U);
}

TEST_F(OffsetPlannerTest, APeriodBeyondTheWindowFindsRoomAtTheEndOfTheWindow) {
    Plan(Tasks{Task(1, 200, 200000)});
    const auto task = Plan(Task(2, 1000, 234));
    EXPECT_EQ(task.offset_us, 200000U);
    EXPECT_EQ(task.conflicts, 0U);
}

TEST_F(OffsetPlannerTest, TheWindowIsTheLeastCommonMultipleOfAllPeriods) {
    Plan(Tasks{Task(1, 4), Task(2, 6)});
    EXPECT_EQ(planner.WindowUs(), 12000U);
    Plan(Task(3, 10));
    EXPECT_EQ(planner.WindowUs(), 60000U);
    Plan(Task(4, 2));
    EXPECT_EQ(planner.WindowUs(), 60000U);
}

TEST_F(OffsetPlannerTest, TheWindowStaysAt200MsForAWiderMultiple) {
    Plan(Tasks{Task(1, 7), Task(2, 11), Task(3, 13)});
    EXPECT_EQ(planner.WindowUs(), 200000U);
    Plan(Task(4, 17));
    EXPECT_EQ(planner.WindowUs(), 200000U);
}

TEST_F(OffsetPlannerTest, AMultipleBeyond64BitsStaysAt200Ms) {
    Tasks tasks;
    for (uint32_t i = 0; i < 250; ++i) {
        tasks.push_back(Task(i, 65535 - i));
    }
    Plan(tasks);
    EXPECT_EQ(planner.WindowUs(), 200000U);
}

TEST_F(OffsetPlannerTest, ShortPeriodsTakeTheSafeWindowAwayForGood) {
    Plan(Task(1, 5));
    const auto task = Plan(Task(2, 10)); // a window of 10 ms, and yet no lead
    EXPECT_EQ(planner.WindowUs(), 10000U);
    EXPECT_EQ(task.offset_us, 240U);
    EXPECT_EQ(task.kernel_offset_us, 240U);
}

TEST_F(OffsetPlannerTest, ALaterTaskKeepsToTheGridWithTheSafeWindowAhead) {
    Plan(Tasks{Task(1, 100)}); // window 100 ms
    now += 30000;
    const auto task = Plan(Task(2, 20)); // 240 is past: two periods on, and the next
    EXPECT_EQ(task.offset_us, 240U);
    // 29,760 us since the offset hold one period; the safe window holds none.
    EXPECT_EQ(task.kernel_offset_us, 40240U - 30000U);
    now += 1000;
    const auto near = Plan(Task(3, 20)); // at 40,480 it would be less than 10 ms ahead
    EXPECT_EQ(near.offset_us, 480U);
    EXPECT_EQ(near.kernel_offset_us, 200480U - 31000U);
}

TEST_F(OffsetPlannerTest, AShortPeriodIsMovedOnByTheSafeWindowAsWell) {
    Plan(Tasks{Task(1, 100)});
    now += 50000;
    // 49,760 us since the offset hold four periods, the safe window one, and one more.
    EXPECT_EQ(Plan(Task(2, 10)).kernel_offset_us, 60240U - 50000U);
}

TEST_F(OffsetPlannerTest, AStartNearTheEndOfTheWindowMovesToTheNextWindow) {
    Plan(Tasks{Task(1, 100)});
    now += 75000;
    const auto task = Plan(Task(2, 20)); // 80,240 lies 5,240 us ahead; 100 ms minus 10 is 90 ms
    EXPECT_EQ(task.kernel_offset_us, 200240U - 75000U);
    now += 10000;
    const auto next = Plan(Task(3, 50)); // 480 + 50,000 is past, 100,480 is beyond 90,000
    EXPECT_EQ(next.kernel_offset_us, 100480U - 85000U);
}

TEST_F(OffsetPlannerTest, ALaterWindowCountsFromTheBaseTime) {
    Plan(Tasks{Task(1, 10)});
    now += 1000 * 10000 + 3;
    const auto task = Plan(Task(2, 10));
    EXPECT_EQ(task.offset_us, 240U);
    // 240 is 237 us ahead, beyond the end of the window less 10 ms: the next window, 10,237 ahead.
    EXPECT_EQ(task.kernel_offset_us, 10237U);
}

TEST_F(OffsetPlannerTest, AForgottenBaseTimeIsFixedAnewAndTheTimelineStays) {
    Plan(Task(1, 10));
    planner.ForgetBaseTime();
    now += 12345;
    const auto task = Plan(Task(2, 10));
    EXPECT_EQ(task.offset_us, 240U);
}

TEST_F(OffsetPlannerTest, ARemovedTaskLeavesItsPlace) {
    Plan(Tasks{Task(1, 10), Task(2, 10)});
    planner.Remove(1);
    EXPECT_EQ(Plan(Task(3, 10)).offset_us, 0U);
    planner.Remove(99); // never planned
    EXPECT_EQ(Plan(Task(4, 10)).offset_us, 480U);
}

TEST_F(OffsetPlannerTest, AnIntervalCutAtTheEndOfTheWindowStaysBehind) {
    Plan(Task(1, 10, 9900));
    EXPECT_EQ(Plan(Task(2, 10, 200)).offset_us, 9900U); // the window is a line, not a circle
    planner.Remove(2);
    EXPECT_EQ(Plan(Task(3, 10, 50)).conflicts, 1U);
}

TEST_F(OffsetPlannerTest, OneIdOnTwoChannelsIsOneEntry) {
    Plan(Tasks{Task(5, 10)});
    Plan(Tasks{Task(5, 10)}); // the caller has not removed it: both lie on the timeline
    planner.Remove(5);        // the second, at 240
    EXPECT_EQ(Plan(Task(6, 10)).offset_us, 240U);
}

} // namespace
