#include "modules/LinSchedule/LinScheduleManager.h"

#include "modules/LinFixture.h"

#include <algorithm>

namespace {

class LinScheduleManagerTest : public LinTest {
  protected:
    static Bytes Data(const LinSocket::Frame& frame) {
        return {frame.begin() + 20, frame.begin() + 28};
    }

    // The frames of one cycle of channel 0, from now on.
    static std::vector<LinSocket::Frame> Cycle(size_t length) {
        Frames(0);
        auto frames = WaitForFrames(length + 1);
        frames.erase(frames.begin()); // perhaps of before
        frames.resize(length);
        return frames;
    }

    // A slot that is written late makes the next seem early: by less than this, in ms.
    static constexpr double kLateness = 100;

    LinScheduleManager& manager = lin.schedules;
};

TEST_F(LinScheduleManagerTest, TellsItselfAndWhatItMakes) {
    EXPECT_EQ(Told([] { const LinScheduleManager another; }),
              "schedule table0 has created\nschedule table0 has created\n"
              "schedule table1 has created\nschedule table1 has created\n"
              "LinScheduleManager has created\n");
}

TEST_F(LinScheduleManagerTest, ChannelsAreRespondersAtFirst) {
    const LinScheduleManager another;
    for (const int ch : {0, 1}) {
        EXPECT_FALSE(another.getStatus(ch));
        EXPECT_FALSE(another.getExecutorStatus(ch));
    }
}

TEST_F(LinScheduleManagerTest, AManagerThatGoesEndsTheSchedulesThatRun) {
    testing::internal::CaptureStdout(); // it tells itself
    auto another = std::make_unique<LinScheduleManager>();
    testing::internal::GetCapturedStdout();
    for (const int ch : {0, 1}) {
        const lin_tx_message message = Header(static_cast<uint8_t>(1 + ch));
        another->setStatus(ch, true);
        EXPECT_EQ(another->addToStandbyTable(ch, 1000, 1, &message), 0);
        another->setNewTable(ch);
        another->startExecutor(ch);
        WaitForFrames(2, ch);
    }
    another.reset();
    Frames(0);
    Frames(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(Frames(0).empty());
    EXPECT_TRUE(Frames(1).empty());
}

TEST_F(LinScheduleManagerTest, AResponderStartsNothing) {
    Download(0, {1});
    EXPECT_EQ(Told([&] { manager.startExecutor(0); }),
              "LinScheduleManager::startExecutor : start failed\n");
    EXPECT_FALSE(manager.getExecutorStatus(0));
}

TEST_F(LinScheduleManagerTest, ACommanderWithoutATableStartsNothing) {
    manager.setStatus(0, true);
    EXPECT_EQ(Told([&] { manager.startExecutor(0); }),
              "LinScheduleManager::startExecutor : start failed\n");
}

TEST_F(LinScheduleManagerTest, ACommanderRunsItsTableUntilItIsStopped) {
    manager.setStatus(0, true);
    Download(0, {1, 2, 3});
    EXPECT_EQ(Told([&] { manager.startExecutor(0); }), "");
    EXPECT_TRUE(manager.getExecutorStatus(0));
    EXPECT_FALSE(manager.getExecutorStatus(1));
    auto frames = WaitForFrames(3);
    frames.resize(3);
    EXPECT_EQ(Pids(frames), (Bytes{1, 2, 3}));
    EXPECT_EQ(Told([&] { manager.startExecutor(0); }),
              "LinScheduleManager::startExecutor : start failed\n");
    EXPECT_TRUE(manager.getExecutorStatus(0));
    manager.stopExecutor(0);
    EXPECT_FALSE(manager.getExecutorStatus(0));
    manager.stopExecutor(0);
    manager.startExecutor(0); // the table is still there
    WaitForFrames(1);
}

TEST_F(LinScheduleManagerTest, BothChannelsRunAtOnceEachItsOwnTable) {
    manager.setStatus(0, true);
    manager.setStatus(1, true);
    Download(0, {1, 2});
    Download(1, {7, 8, 9});
    manager.startExecutor(1);
    EXPECT_FALSE(manager.getExecutorStatus(0));
    EXPECT_TRUE(manager.getExecutorStatus(1));
    auto second = WaitForFrames(4, 1);
    EXPECT_TRUE(Frames(0).empty());
    manager.startExecutor(0);
    auto first = WaitForFrames(4, 0);
    EXPECT_TRUE(manager.getExecutorStatus(1));
    for (auto& frame : WaitForFrames(4, 1)) {
        second.push_back(std::move(frame));
    }
    const Bytes expected0{1, 2, 1, 2};
    first.resize(expected0.size());
    EXPECT_EQ(Pids(first), expected0);
    const Bytes expected1{7, 8, 9, 7, 8, 9, 7, 8};
    ASSERT_GE(second.size(), expected1.size());
    second.resize(expected1.size());
    EXPECT_EQ(Pids(second), expected1);
    manager.stopExecutor(1);
    EXPECT_TRUE(manager.getExecutorStatus(0));
}

TEST_F(LinScheduleManagerTest, TheRoleChangesOnlyWhileStopped) {
    EXPECT_EQ(manager.setStatus(0, true), 0);
    Download(0, {1});
    manager.startExecutor(0);
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.setStatus(0, false), -1); }),
              "LinScheduleManager::setStatus fail! executor running\n");
    EXPECT_TRUE(manager.getStatus(0));
    manager.stopExecutor(0);
    EXPECT_EQ(manager.setStatus(0, false), 0);
    EXPECT_FALSE(manager.getStatus(0));
}

TEST_F(LinScheduleManagerTest, ADownloadWhileRunningGoesOnWithTheNewTableAndEmptiesTheOld) {
    manager.setStatus(0, true);
    Download(0, {1, 2});
    manager.startExecutor(0);
    WaitForFrames(4);
    Download(0, {7, 8, 9});
    EXPECT_TRUE(manager.getExecutorStatus(0));
    auto frames = Frames(0); // of the old table, however many these are
    for (auto& frame : WaitForFrames(4)) {
        frames.push_back(std::move(frame));
    }
    const Bytes pids = Pids(frames);
    const auto first = std::find(pids.begin(), pids.end(), 7);
    ASSERT_GE(pids.end() - first, 4);
    EXPECT_EQ(Bytes(first, first + 4), (Bytes{7, 8, 9, 7}));
    EXPECT_TRUE(std::find(first, pids.end(), 1) == pids.end());
    // What stands aside is the old table: it is empty.
    EXPECT_EQ(Told([&] { manager.setNewTable(0); }),
              "LinScheduleManager::startExecutor : start failed\n");
    EXPECT_FALSE(manager.getExecutorStatus(0));
}

TEST_F(LinScheduleManagerTest, ADownloadWhileRunningIsOneStopAndOneStart) {
    manager.setStatus(0, true);
    Download(0, {1, 2});
    std::vector<pid_t> threads; // that wrote the frames: one behind the other, never two at once
    lin.sockets[0]->beforeWrite = [&] { threads.push_back(gettid()); };
    manager.startExecutor(0);
    auto frames = WaitForFrames(4);
    Download(0, {7, 8, 9});
    for (const size_t more : {1U, 40U}) { // what was left of the old table, and the new one
        for (auto& frame : WaitForFrames(more)) {
            frames.push_back(std::move(frame));
        }
    }
    manager.stopExecutor(0);
    for (auto& frame : Frames(0)) {
        frames.push_back(std::move(frame));
    }
    const Bytes pids = Pids(frames);
    ASSERT_EQ(threads.size(), pids.size());
    const auto swap = std::find_if(pids.begin(), pids.end(), [](int pid) { return pid > 2; });
    const auto first = static_cast<size_t>(swap - pids.begin());
    ASSERT_LT(first, pids.size());
    EXPECT_EQ(pids[first], 7); // the new table from its front
    for (size_t i = 0; i < threads.size(); ++i) {
        EXPECT_EQ(threads[i], threads[i < first ? 0 : first]) << i;
    }
    EXPECT_NE(threads[0], threads[first]);
}

TEST_F(LinScheduleManagerTest, ADownloadWhileStoppedJustSwaps) {
    manager.setStatus(0, true);
    EXPECT_EQ(Told([&] { Download(0, {5}); }), "");
    EXPECT_FALSE(manager.getExecutorStatus(0));
    manager.startExecutor(0);
    EXPECT_EQ(Pids(WaitForFrames(1))[0], 5);
}

TEST_F(LinScheduleManagerTest, AnItemHasTheSlotThatItWasGiven) {
    manager.setStatus(0, true);
    const lin_tx_message message = Header(0x42, 6);
    EXPECT_EQ(manager.addToStandbyTable(0, 300000, 3, &message), 0);
    manager.setNewTable(0);
    EXPECT_GE(Gap(), 300 - kLateness);
}

TEST_F(LinScheduleManagerTest, TheSlotThatTheHostAskedForCountsOnceAResponseIsSet) {
    manager.setStatus(0, true);
    const lin_tx_message message = Header(0x42);
    EXPECT_EQ(manager.addToStandbyTable(0, 3000, 300, &message), 0);
    manager.setNewTable(0);
    const Bytes data(8);
    manager.setResMsg(0, 0x42, 2, data.data());
    EXPECT_GE(Gap(), 300 - kLateness);
}

TEST_F(LinScheduleManagerTest, AnItemTooManyEmptiesTheTableThatIsBuilt) {
    manager.setStatus(0, true);
    const lin_tx_message message = Header(1);
    testing::internal::CaptureStdout();
    for (int i = 0; i < 255; ++i) {
        EXPECT_EQ(manager.addToStandbyTable(0, 1000, 1, &message), 0);
    }
    EXPECT_EQ(manager.addToStandbyTable(0, 1000, 1, &message), -1);
    testing::internal::GetCapturedStdout();
    manager.setNewTable(0);
    EXPECT_EQ(Told([&] { manager.startExecutor(0); }),
              "LinScheduleManager::startExecutor : start failed\n");
}

TEST_F(LinScheduleManagerTest, ARunningTableIsNotCleared) {
    manager.setStatus(0, true);
    Download(0, {1});
    manager.startExecutor(0);
    EXPECT_EQ(Told([&] { manager.clearTable(0); }),
              "LinScheduleManager::clearTable executor is running\n");
    manager.stopExecutor(0);
    manager.startExecutor(0);
    EXPECT_TRUE(manager.getExecutorStatus(0));
    manager.stopExecutor(0);
    EXPECT_EQ(Told([&] { manager.clearTable(0); }), "");
    manager.startExecutor(0);
    EXPECT_FALSE(manager.getExecutorStatus(0));
}

TEST_F(LinScheduleManagerTest, AResponseReachesTheRunningTable) {
    manager.setStatus(0, true);
    Download(0, {1, 2});
    manager.startExecutor(0);
    const Bytes data{1, 2, 3, 4, 5, 6, 7, 8};
    manager.setResMsg(0, 2, 3, data.data());
    for (const auto& frame : Cycle(2)) {
        EXPECT_EQ(frame[8], frame[0] == 2 ? 1 : 0); // with a response
        EXPECT_EQ(frame[12], frame[0] == 2 ? 1 : 0);
        EXPECT_EQ(Data(frame), frame[0] == 2 ? (Bytes{1, 2, 3, 0, 0, 0, 0, 0}) : Bytes(8));
    }
    EXPECT_EQ(Told([&] { manager.delResMsg(0, 2, true); }), "LinTable::modifyData del pid :2\n");
    for (const auto& frame : Cycle(2)) {
        EXPECT_EQ(frame[8], 0);
        EXPECT_EQ(frame[12], 0);
    }
}

TEST_F(LinScheduleManagerTest, AResponseThatIsSetAgainIsTold) {
    const Bytes data(8);
    EXPECT_EQ(Told([&] { manager.setResMsg(0, 2, 3, data.data()); }), "");
    EXPECT_EQ(Told([&] { manager.setResMsg(0, 2, 3, data.data()); }),
              "LinScheduleManager::setResMsg pid res exists, need to update data\n");
    EXPECT_EQ(Told([&] { manager.setResMsg(1, 2, 3, data.data()); }), ""); // the other channel
}

TEST_F(LinScheduleManagerTest, AResponseIsMergedIntoALaterDownload) {
    const Bytes data{9, 8, 7, 6, 5, 4, 3, 2};
    manager.setResMsg(0, 0x42, 4, data.data());
    lin_tx_message message = Header(0x42);
    manager.setResMsg(0, 0x42, &message);
    EXPECT_EQ(message.flag.ctrl_type, WITH_RESPONSE);
    EXPECT_EQ(message.flag.is_active, 1);
    EXPECT_EQ(message.lin_frame.dlc, 4);
    EXPECT_EQ(Bytes(message.lin_frame.data, message.lin_frame.data + 8),
              (Bytes{9, 8, 7, 6, 0, 0, 0, 0}));
    lin_tx_message other = Header(0x43);
    manager.setResMsg(0, 0x43, &other);
    manager.setResMsg(1, 0x42, &other);
    EXPECT_EQ(other.flag.ctrl_type, ONLY_COMMAND);
    EXPECT_EQ(other.lin_frame.dlc, 2);
}

TEST_F(LinScheduleManagerTest, ALengthAboveEightIsKeptWithEightBytes) {
    for (const int length : {9, 100, 255}) {
        Bytes data{1, 2, 3, 4, 5, 6, 7, 8};
        data.shrink_to_fit(); // a read behind it is seen
        manager.setResMsg(0, 1, length, data.data());
        lin_tx_message message = Header(1);
        manager.setResMsg(0, 1, &message);
        EXPECT_EQ(message.lin_frame.dlc, length);
        EXPECT_EQ(Bytes(message.lin_frame.data, message.lin_frame.data + 8), data);
        EXPECT_EQ(message.time_detil.break_field_length, 0);
    }
}

TEST_F(LinScheduleManagerTest, ADeletedResponseIsFoundAgainByALaterDownload) {
    const Bytes data(8, 0x77);
    manager.setResMsg(0, 1, 2, data.data());
    EXPECT_EQ(Told([&] { manager.delResMsg(0, 1, true); }),
              "LinScheduleManager::delResMsg not master or don't have pid:1\n");
    lin_tx_message message = Header(1);
    manager.setResMsg(0, 1, &message);
    EXPECT_EQ(message.lin_frame.data[0], 0x77);
    // It counts as new when it is set again, with other bytes.
    const Bytes other(8, 0x88);
    EXPECT_EQ(Told([&] { manager.setResMsg(0, 1, 1, other.data()); }), "");
    manager.setResMsg(0, 1, &message);
    EXPECT_EQ(message.lin_frame.dlc, 1);
    EXPECT_EQ(message.lin_frame.data[0], 0x88);
}

TEST_F(LinScheduleManagerTest, ADeletionWithoutDelLeavesItSet) {
    const Bytes data(8);
    manager.setResMsg(0, 1, 2, data.data());
    manager.delResMsg(0, 1, false);
    EXPECT_EQ(Told([&] { manager.setResMsg(0, 1, 2, data.data()); }),
              "LinScheduleManager::setResMsg pid res exists, need to update data\n");
}

TEST_F(LinScheduleManagerTest, AClearForgetsAllResponsesAndTakesThemOutOfTheTable) {
    manager.setStatus(0, true);
    Download(0, {1, 2, 3});
    const Bytes data(8, 0x11);
    manager.setResMsg(0, 1, 2, data.data());
    manager.setResMsg(0, 3, 2, data.data());
    manager.setResMsg(0, 9, 2, data.data()); // in no table
    const std::string told = Told([&] { manager.clearResMsg(0); });
    EXPECT_NE(told.find("LinTable::modifyData del pid :1\n"), std::string::npos);
    EXPECT_NE(told.find("LinTable::modifyData del pid :3\n"), std::string::npos);
    EXPECT_EQ(told.find(":9"), std::string::npos);
    manager.startExecutor(0);
    for (const auto& frame : Cycle(3)) {
        EXPECT_EQ(frame[8], 0);
    }
    EXPECT_EQ(Told([&] { manager.setResMsg(0, 9, 2, data.data()); }), ""); // new
    lin_tx_message message = Header(1);
    manager.setResMsg(0, 1, &message);
    EXPECT_EQ(message.flag.ctrl_type, ONLY_COMMAND);
}

TEST_F(LinScheduleManagerTest, AClearWithoutATableIsToldAndForgetsAllTheSame) {
    const Bytes data(8);
    manager.setResMsg(0, 1, 2, data.data());
    EXPECT_EQ(Told([&] { manager.clearResMsg(0); }),
              "LinScheduleManager::clearResMsg current table is null:\n");
    EXPECT_EQ(Told([&] { manager.setResMsg(0, 1, 2, data.data()); }), "");
}

TEST_F(LinScheduleManagerTest, ACheckForgetsWhatLaterDownloadsWouldFind) {
    const Bytes data(8, 0x77);
    manager.setResMsg(0, 1, 2, data.data());
    manager.checkResMsg(0);
    lin_tx_message message = Header(1);
    manager.setResMsg(0, 1, &message);
    EXPECT_EQ(message.flag.ctrl_type, ONLY_COMMAND);
    EXPECT_EQ(Told([&] { manager.setResMsg(0, 1, 2, data.data()); }),
              "LinScheduleManager::setResMsg pid res exists, need to update data\n");
}

TEST_F(LinScheduleManagerTest, PidsThatAreInNoTableAreTold) {
    manager.setStatus(0, true);
    Download(0, {1});
    for (const int pid : {0, 2, 255, 256, -1}) {
        EXPECT_EQ(Told([&] { manager.delResMsg(0, pid, true); }),
                  "LinScheduleManager::delResMsg not master or don't have pid:" +
                      std::to_string(pid) + "\n");
    }
}

} // namespace
