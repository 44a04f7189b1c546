#include "net/CanSendFixture.h"

namespace {

TEST_F(CanSendTest, ARateThatWasNeverSetFallsBackToldOnce) {
    CanManage::BaudRate_[0] = 0;
    testing::internal::CaptureStdout();
    Periodic(0, {Entry(1, 10, 8, kEight), Entry(2, 10, 8, kEight)});
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ARBITRATION_BAUD_RATE_BPS must be defined and greater than 0.\n");
    EXPECT_EQ(CanManage::BaudRate_[0], 100);
    EXPECT_EQ(CanManage::DataBaudRate_[0], 2000000);
    EXPECT_EQ(Messages().size(), 2U); // 1.17 s a frame, and yet sent
}

TEST_F(CanSendTest, ADataRateThatWasNeverSetFallsBackForFdFramesAlone) {
    CanManage::DataBaudRate_[0] = 0;
    testing::internal::CaptureStdout();
    Periodic(0, {Entry(1, 10, 8, kEight)});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    Periodic(0, {Entry(2, 10, kFd), Entry(3, 10, kFd)});
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "DATA_BAUD_RATE_BPS must be defined and greater than 0 for CAN FD frames.\n");
    EXPECT_EQ(CanManage::DataBaudRate_[0], 100);
}

TEST_F(CanSendTest, AFrameTimeOf0SkipsTheTaskWithAWarning) {
    CanManage::BaudRate_[0] = 2000000000;
    testing::internal::CaptureStderr();
    Periodic(0, {Entry(0x1AB, 10, 8, kEight)});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Warning: Invalid task parameters for CAN ID 0x1ab. Skipping.\n");
    EXPECT_TRUE(Messages().empty());
}

TEST_F(CanSendTest, AFullBusIsToldAndTheTaskSent) {
    CanManage::BaudRate_[0] = 10000; // 11.7 ms a frame
    testing::internal::CaptureStderr();
    Periodic(0, {Entry(1, 10, 8, kEight), Entry(0xFE, 10, 8, kEight)});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Warning: No conflict-free offset found for CAN ID 0xfe. Assigning offset with 1 "
              "conflicts.\n");
    EXPECT_EQ(Messages().size(), 2U);
}

TEST_F(CanSendTest, AFailedWriteOfAClassicTaskIsToldAndTheTaskNotKept) {
    channels[0]->BreakPeriodic();
    testing::internal::CaptureStdout();
    Periodic(0, {Entry(1, 10, 0)});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ZephCanCom::WriteCanFrame errno =32\n");
    channels[0]->Open();
    Periodic(0, {Entry(1, 10, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{1, 3, 1}})); // a start, not an update
}

TEST_F(CanSendTest, AFailedWriteOfAnFdTaskIsNotTold) {
    channels[0]->BreakPeriodic();
    testing::internal::CaptureStdout();
    Periodic(0, {Entry(1, 10, kFd)});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(send.SetCANFDTask(0, canfd_frame{}, 10, 0), EPIPE);
    EXPECT_EQ(send.SetCANTask(0, can_frame{}, 0, 0), 0); // of a stop nobody looks
}

TEST_F(CanSendTest, ClosedSocketsFailEachWrite) {
    send.CloseAllSocket();
    for (uint8_t ch = 0; ch < 6; ++ch) {
        EXPECT_EQ(sockets.GetComNetStatus(ch), 0);
    }
    EXPECT_EQ(send.SetCANTask(0, can_frame{}, 10, 0), EBADF);
    can_frame frame{};
    EXPECT_EQ(send.WriteCallback(0, &frame, 0, 0, 0), -EBADF);
}

TEST_F(CanSendTest, AfterACloseTheNextBatchFixesANewBaseTime) {
    Periodic(0, {Entry(1, 10, 8, kEight)});
    send.CloseAllSocket();
    send.OpenAllSocket();
    board.SetCounter(100000000 + 300000); // 3 ms on
    Periodic(0, {Entry(2, 10, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[0]->Periodic().at(0)), 10240U); // from its own base time
}

TEST_F(CanSendTest, ForgottenTasksAreStartedAnew) {
    Periodic(0, {Entry(1, 10, 0)});
    send.ClearPeriodicSendTask();
    Messages();
    Periodic(0, {Entry(1, 10, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{1, 3, 1}}));
}

} // namespace
