#include "modules/LinExecutorFixture.h"

#include <atomic>

#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST_F(LinExecutorTest, TheTableIsWalkedInItsOrderForEver) {
    Add(1, 2000);
    Add(2, 3000);
    Add(1, 2000);
    Start();
    EXPECT_TRUE(executor.getRunning());
    const auto slots = WaitForSlots(7);
    Bytes pids;
    for (const auto& slot : slots) {
        pids.push_back(slot.pid);
    }
    EXPECT_EQ(pids, (Bytes{1, 2, 1, 1, 2, 1, 1}));
    executor.stop();
    EXPECT_FALSE(executor.getRunning());
}

TEST_F(LinExecutorTest, ASlotsFrameByteForByte) {
    TableItem item;
    item.pid = 0xC1;
    item.delay_us = 1000;
    item.msg.flag = {WITH_RESPONSE, 1, 2, 3, 0};
    item.msg.lin_frame = {0xC1, 8, 0x55, 0x66, {1, 2, 3, 4, 5, 6, 7, 8}};
    item.msg.time_detil = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 0x11223344, 0x55667788};
    table->addItem(std::move(item));
    Start();
    WaitForSlots(2); // the first has gone out whole
    executor.stop();
    Bytes expected{0xC1, 0,    0,    0,    40,   0,    0,    0,                   // head
                   1,    0,    0,    0,    1,    2,    3,    0,                   // flag
                   0xC1, 8,    0x55, 0x66, 1,    2,    3,    4,   5,  6,  7,  8,  // lin_frame
                   10,   11,   12,   13,   14,   15,   16,   17,  18, 19, 20, 21, // time_detil
                   0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55};
    expected.resize(72);
    const auto frames = socket->Frames();
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames[0], expected);
}

TEST_F(LinExecutorTest, TheFirstFrameWaits26Milliseconds) {
    Add(1, 1000);
    const auto start = Clock::now();
    Start();
    EXPECT_GE(Ms(WaitForSlots(1)[0].start - start), 26.0);
}

TEST_F(LinExecutorTest, TheThreadHasTheHighestPriority) {
    std::atomic<int> policy{-1};
    std::atomic<int> priority{-1};
    socket->beforeWrite = [&] {
        sched_param param{};
        int now = -1;
        pthread_getschedparam(pthread_self(), &now, &param);
        priority = param.sched_priority;
        policy = now;
    };
    Add(1, 2000);
    Start();
    WaitForSlots(2); // the first has gone out whole
    executor.stop();
    EXPECT_EQ(policy, SCHED_FIFO);
    EXPECT_EQ(priority, sched_get_priority_max(SCHED_FIFO));
}

TEST_F(LinExecutorTest, WithoutAThreadToBeHadItStaysStoppedAndSaysSo) {
    Add(1, 1000);
    executor.setTable(table);
    pthread_attr_t before;
    ASSERT_EQ(pthread_getattr_default_np(&before), 0);
    pthread_attr_t huge;
    ASSERT_EQ(pthread_getattr_default_np(&huge), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, size_t{1} << 47), 0); // no memory is that large
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    const std::string told = Told([&] { executor.start(); });
    EXPECT_EQ(pthread_setattr_default_np(&before), 0);
    pthread_attr_destroy(&huge);
    pthread_attr_destroy(&before);
    EXPECT_EQ(told.find("LIN0: the schedule does not start, there is no thread for it: "), 0U);
    EXPECT_FALSE(executor.getRunning());
    executor.start();
    EXPECT_TRUE(executor.getRunning());
    WaitForSlots(1);
}

TEST_F(LinExecutorTest, SlotsTakeTheirTime) {
    Add(1, 10000);
    Add(2, 20000);
    Start();
    constexpr int kCycles = 10;
    const auto slots = WaitForSlots(2 * kCycles + 1);
    executor.stop();
    const double all = Ms(slots.back().start - slots.front().start);
    EXPECT_GE(all, kCycles * 30.0 - 10);  // a sleep never ends early, the first frame may be late
    EXPECT_LT(all, kCycles * 30.0 + 200); // on a machine with other work
    RecordProperty("mean_cycle_us", std::to_string(all * 1000 / kCycles));
}

TEST_F(LinExecutorTest, AStopWaitsForTheSlotInProgress) {
    Add(1, 300000);
    Add(2, 300000);
    Start();
    const auto begin = WaitForSlots(1)[0].start;
    executor.stop();
    EXPECT_GE(Ms(Clock::now() - begin), 299.0);
    EXPECT_EQ(socket->Slots().size(), 1U);
}

TEST_F(LinExecutorTest, AStartOfARunningExecutorAndAStopOfAStoppedOneDoNothing) {
    executor.stop();
    Add(1, 1000);
    Start();
    WaitForSlots(1);
    executor.start();
    WaitForSlots(3);
    executor.stop();
    executor.stop();
    const size_t sent = socket->Slots().size();
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(socket->Slots().size(), sent);
    executor.start(); // with the table it had
    WaitForSlots(sent + 2);
}

TEST_F(LinExecutorTest, NoTableIsToldAndLeavesTheOneThatIsThere) {
    Add(1, 1000);
    executor.setTable(table);
    EXPECT_EQ(Told([&] { executor.setTable(nullptr); }), "LinExecutor::setTable table is null\n");
    executor.start();
    EXPECT_EQ(WaitForSlots(1)[0].pid, 1);
}

TEST_F(LinExecutorTest, AnotherResponseGoesOutInTheNextPassAndItsSlotWithTheNextTable) {
    SetBaudrate(0, 1000);
    Add(1, 5000);
    Start();
    WaitForSlots(2);
    const Bytes data{0xAA, 0xBB};
    table->modifyData(1, 2, data.data());
    EXPECT_EQ(table->items()[0].delay_us, 79000U); // (64 + 15) bits
    socket->Frames();
    const size_t before = socket->Slots().size();
    const auto slots = WaitForSlots(before + 6);
    executor.stop();
    EXPECT_LT(Ms(slots[before + 5].start - slots[before].start), 5 * 70.0); // as it was
    const auto frames = socket->Frames();
    ASSERT_GE(frames.size(), 4U);
    for (size_t i = 1; i < 4; ++i) {
        EXPECT_EQ(Bytes(frames[i].begin() + 17, frames[i].begin() + 22),
                  (Bytes{2, 0x55, 0, 0xAA, 0xBB}));
        EXPECT_EQ(frames[i][8], 1);
    }
    const size_t sent = socket->Slots().size();
    Start();
    const auto later = WaitForSlots(sent + 2);
    EXPECT_GE(Ms(later[sent + 1].start - later[sent].start), 78.9);
}

TEST_F(LinExecutorTest, ARunningTableNeverSendsAHalfChangedResponse) {
    Add(1, 50);
    Start();
    WaitForSlots(1);
    const auto end = Clock::now() + milliseconds(300);
    size_t frames = 0;
    for (uint8_t value = 1; Clock::now() < end; ++value) {
        const Bytes data(8, value);
        table->modifyData(1, 8, data.data());
        for (const auto& frame : socket->Frames()) {
            ++frames;
            const Bytes sent(frame.begin() + 20, frame.begin() + 28);
            ASSERT_EQ(sent, Bytes(8, sent[0]));
        }
    }
    EXPECT_GT(frames, 100U);
}

TEST_F(LinExecutorTest, ASlotAllocatesNothingAndTakesNoLock) {
    Add(1, 1000);
    Add(2, 1000);
    Start();
    const auto slots = WaitForSlots(200);
    executor.stop();
    EXPECT_EQ(slots[199].allocations - slots[0].allocations, 0U);
    // One lock a slot is this test's own.
    EXPECT_EQ(slots[199].locks - slots[0].locks, ThreadCostIsCounted() ? 199U : 0U);
}

TEST_F(LinExecutorTest, ASlotPrintsNothing) {
    Add(1, 1000);
    executor.setTable(table);
    EXPECT_EQ(Told([&] {
                  executor.start();
                  WaitForSlots(20);
                  executor.stop();
              }),
              "");
}

TEST_F(LinExecutorTest, AClosedChannelIsToldInEachSlotAndTheScheduleGoesOn) {
    Add(1, 2000);
    com.LinComMClose(0, 1);
    executor.setTable(table);
    const std::string line = "ZephLinComM::WriteCallback： net close\n";
    const std::string told = Told([&] {
        executor.start();
        // What is printed goes to a file meanwhile.
        const auto end = Clock::now() + std::chrono::seconds(20);
        struct stat file {};
        while (fstat(STDOUT_FILENO, &file) == 0 &&
               file.st_size < static_cast<off_t>(2 * line.size()) && Clock::now() < end) {
            std::this_thread::sleep_for(milliseconds(1));
        }
        com.LinComMOpen(0);
        WaitForSlots(1);
        executor.stop();
    });
    EXPECT_EQ(told.substr(0, 2 * line.size()), line + line);
}

TEST_F(LinExecutorTest, ATableWithoutAnyLengthLeavesTheProcessorToOthers) {
    Add(1, 0);
    Start();
    WaitForSlots(1);
    std::this_thread::sleep_for(milliseconds(100));
    executor.stop();
    EXPECT_LE(socket->Slots().size(), 300U); // about one in a millisecond
}

TEST_F(LinExecutorTest, ATableWithoutAnyLengthRestsAlsoBehindOneThatHadSome) {
    Add(1, 2000);
    Start();
    WaitForSlots(2);
    executor.stop();
    const size_t before = socket->Slots().size();
    table->clear();
    Add(2, 0);
    Start();
    WaitForSlots(before + 1);
    std::this_thread::sleep_for(milliseconds(100));
    executor.stop();
    const auto slots = socket->Slots();
    EXPECT_LE(slots.size() - before, 300U); // about one in a millisecond
    for (size_t i = before; i < slots.size(); ++i) {
        EXPECT_EQ(slots[i].pid, 2);
    }
}

TEST_F(LinExecutorTest, WithoutATableNothingIsSent) {
    executor.start();
    std::this_thread::sleep_for(milliseconds(60));
    executor.stop();
    EXPECT_TRUE(socket->Slots().empty());
}

} // namespace
