#include "net/CanSendFixture.h"

namespace {

TEST_F(CanSendTest, AllChannelsAreOpenFromTheStart) {
    for (uint8_t ch = 0; ch < 6; ++ch) {
        EXPECT_EQ(sockets.GetComNetStatus(ch), 1);
        EXPECT_EQ(channels[ch]->opened, 1);
    }
}

TEST_F(CanSendTest, AFirst10MsTaskStartsAfter20Ms) {
    Periodic(3, {Entry(0x123, 10, 8, kEight)});
    const auto messages = channels[3]->Periodic();
    ASSERT_EQ(messages.size(), 1U);
    const auto head = Head(messages[0]);
    EXPECT_EQ(head.opcode, 1U);
    EXPECT_EQ(head.flags, 3U);
    EXPECT_EQ(head.count, 0U);
    EXPECT_EQ(head.nframes, 1U);
    EXPECT_EQ(head.can_id, 0x123U);
    EXPECT_EQ(FirstDelayUs(messages[0]), 20000U);
    EXPECT_EQ(head.ival2.tv_usec, 9980);
    const can_frame frame = FrameOf(messages[0]);
    EXPECT_EQ(frame.can_id, 0x123U);
    EXPECT_EQ(frame.can_dlc, 8U);
    EXPECT_EQ(frame.__res0, 0U); // the mark is of single frames
    EXPECT_EQ(Bytes(frame.data, frame.data + 8), kEight);
}

TEST_F(CanSendTest, AFirst5MsTaskStartsAtOnce) {
    Periodic(0, {Entry(0x123, 5, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[0]->Periodic().at(0)), 0U);
}

TEST_F(CanSendTest, TheSecondTaskOfABatchKeepsToTheGrid240UsBehindTheFirst) {
    Periodic(0, {Entry(1, 10, 8, kEight), Entry(2, 10, 8, kEight)});
    const auto messages = channels[0]->Periodic();
    EXPECT_EQ(FirstDelayUs(messages.at(0)), 20000U);
    // 240 is beyond the end of the window less the safe window: the first of the next window,
    // 10,240 ahead.
    EXPECT_EQ(FirstDelayUs(messages.at(1)), 10240U);
}

TEST_F(CanSendTest, TheChannelsShareOneTimeline) {
    Periodic(0, {Entry(1, 10, 8, kEight)});
    Periodic(1, {Entry(2, 10, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[1]->Periodic().at(0)), 10240U);
}

TEST_F(CanSendTest, OneIdOnAnotherChannelTakesItsPlaceOnTheTimeline) {
    Periodic(0, {Entry(1, 10, 8, kEight)});
    Periodic(1, {Entry(1, 10, 8, kEight)});
    Periodic(0, {Entry(2, 10, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[0]->Periodic().at(1)), 10240U); // not behind two of them
}

TEST_F(CanSendTest, AStopBeforeTheFirstStartLeavesThePlanAsItIs) {
    Periodic(0, {Entry(1, 0, 0)});
    Periodic(0, {});
    Periodic(0, {Entry(1, 10, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[0]->Periodic().at(1)), 20000U);
}

TEST_F(CanSendTest, TheFrameTimeIsOfTheChannelsOwnRate) {
    CanManage::BaudRate_[1] = 125000; // 936 us
    Periodic(1, {Entry(1, 10, 8, kEight), Entry(2, 10, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[1]->Periodic().at(1)), 10940U);
}

TEST_F(CanSendTest, ABatchIsStartedShortestPeriodFirst) {
    Periodic(0, {Entry(1, 100, 0), Entry(2, 20, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{1, 3, 2}, {1, 3, 1}}));
}

TEST_F(CanSendTest, ARepeatOfARunningTaskSetsItsTimerWithoutAStart) {
    Periodic(0, {Entry(1, 10, 1, {0xAA})});
    Periodic(0, {Entry(1, 50, 1, {0xBB})});
    const auto messages = channels[0]->Periodic();
    EXPECT_EQ(Head(messages.at(1)).flags, 1U);
    EXPECT_EQ(Head(messages.at(1)).ival2.tv_usec, 49980);
    EXPECT_EQ(FrameOf(messages.at(1)).data[0], 0xBB);
}

TEST_F(CanSendTest, ARepeatLeavesItsOldPlaceAndMayTakeItAgain) {
    Periodic(0, {Entry(1, 10, 8, kEight)});
    Periodic(0, {Entry(1, 10, 8, kEight)});
    Periodic(0, {Entry(2, 10, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[0]->Periodic().at(2)), 10240U);
}

TEST_F(CanSendTest, ARemoteFrameInPlaceOfADataFrameStopsItTwiceAndStarts) {
    Periodic(0, {Entry(1, 10, 0)});
    Messages();
    Periodic(0, {Entry(1, 10, kRemote)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0, 1}, {2, 0x800, 1, 128}, {1, 3, 1 | kRtr}}));
    Periodic(0, {Entry(1, 10, 0)}); // and back
    EXPECT_EQ(Messages(),
              (std::vector<Told>{{2, 0, 1 | kRtr}, {2, 0x800, 1 | kRtr, 128}, {1, 3, 1}}));
}

TEST_F(CanSendTest, AnFdFrameInPlaceOfARemoteFrameStopsItOnce) {
    Periodic(0, {Entry(1, 10, kRemote)});
    Messages();
    Periodic(0, {Entry(1, 10, kFd)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0, 1 | kRtr}, {1, 0x803, 1, 128}}));
}

TEST_F(CanSendTest, AnFdTaskInPlaceOfAClassicOneStopsItAndStarts) {
    Periodic(0, {Entry(1, 10, 0)});
    Messages();
    Periodic(0, {Entry(1, 10, kFd)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0, 1}, {1, 0x803, 1, 128}}));
    Periodic(0, {Entry(1, 10, kFd)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{1, 0x801, 1, 128}}));
    Periodic(0, {Entry(1, 10, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0x800, 1, 128}, {1, 3, 1}}));
}

TEST_F(CanSendTest, OneIdOnTwoChannelsIsTwoTasks) {
    Periodic(0, {Entry(1, 10, 0)});
    Periodic(1, {Entry(1, 10, 0)});
    EXPECT_EQ(Messages(0), (std::vector<Told>{{1, 3, 1}}));
    EXPECT_EQ(Messages(1), (std::vector<Told>{{1, 3, 1}}));
}

TEST_F(CanSendTest, APeriodOf0StopsAndForgetsTheTask) {
    Periodic(0, {Entry(1, 10, 0)});
    Messages();
    Periodic(0, {Entry(1, 0, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0, 1}}));
    Periodic(0, {Entry(1, 10, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{1, 3, 1}}));
}

TEST_F(CanSendTest, AStopOfNoTaskReachesTheKernelAllTheSame) {
    Periodic(0, {Entry(7, 0, 0), Entry(8, 0, kFd)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0, 7}, {2, 0x800, 8, 128}}));
}

TEST_F(CanSendTest, StopsReachTheKernelBeforeTheStartsOfTheirRequest) {
    Periodic(0, {Entry(1, 10, 0), Entry(2, 0, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0, 2}, {1, 3, 1}}));
}

TEST_F(CanSendTest, AStoppedTaskKeepsItsPlaceInThePlan) {
    Periodic(0, {Entry(1, 10, 8, kEight)});
    Periodic(0, {Entry(1, 0, 0)});
    Periodic(0, {Entry(2, 10, 8, kEight)});
    EXPECT_EQ(FirstDelayUs(channels[0]->Periodic().back()), 10240U);
}

TEST_F(CanSendTest, StrayBitsOfTheIdAreDropped) {
    Periodic(0, {Entry(0x7FFFFFFF, 10, 0), Entry(0xFFFFFFFF, 20, 0)});
    EXPECT_EQ(Messages(), (std::vector<Told>{{1, 3, 0x7FF}, {1, 3, 0x9FFFFFFF}}));
}

TEST_F(CanSendTest, StrayBitsOfTheFlagsAreDropped) {
    Periodic(0, {Entry(1, 10, 0x91, {0xAA})});
    const auto messages = channels[0]->Periodic();
    EXPECT_EQ(messages.at(0).size(), 72U);
    EXPECT_EQ(FrameOf(messages.at(0)).can_dlc, 1U);
}

TEST_F(CanSendTest, AClassicEntryWithALongDlcTakesItsDataAndKeepsItsLength) {
    Bytes twelve = kEight;
    twelve.resize(12, 0xEE);
    Periodic(0, {Entry(1, 10, 9, twelve), Entry(2, 20, 1, {0xCC})});
    const auto messages = channels[0]->Periodic();
    const can_frame frame = FrameOf(messages.at(0));
    EXPECT_EQ(frame.can_dlc, 12U); // for the kernel to refuse
    EXPECT_EQ(Bytes(frame.data, frame.data + 8), kEight);
    EXPECT_EQ(FrameOf(messages.at(1)).data[0], 0xCC);
}

TEST_F(CanSendTest, AnFdTaskCarriesItsDataAndSwitch) {
    Bytes data(64);
    for (size_t i = 0; i < 64; ++i) {
        data[i] = static_cast<uint8_t>(i);
    }
    Periodic(0, {Entry(0x123 | kExtended, 10, kFd | kRemote | 15, data)});
    const auto messages = channels[0]->Periodic();
    ASSERT_EQ(messages.at(0).size(), 128U);
    canfd_frame frame{};
    std::memcpy(&frame, messages[0].data() + 56, sizeof(frame));
    EXPECT_EQ(frame.can_id, 0x123U | CAN_EFF_FLAG);
    EXPECT_EQ(frame.len, 64U);
    EXPECT_EQ(frame.flags, CANFD_BRS);
    EXPECT_EQ(Bytes(frame.data, frame.data + 64), data);
    EXPECT_EQ(Head(messages[0]).ival2.tv_usec, 9970);
}

TEST_F(CanSendTest, APeriodOf65535MsIsKept) {
    Periodic(0, {Entry(1, 65535, 0)});
    const auto head = Head(channels[0]->Periodic().at(0));
    EXPECT_EQ(head.ival2.tv_sec, 65);
    EXPECT_EQ(head.ival2.tv_usec, 535000);
}

TEST_F(CanSendTest, EntriesBeyondTheBufferAreNotThere) {
    Bytes request = Request(0, {Entry(1, 10, 8, kEight)});
    request[3] = 255;
    request.resize(request.size() + 10); // one more entry of id 0 and period 0, and some bytes
    send.SetPeriodicSendTask(request);
    EXPECT_EQ(Messages(), (std::vector<Told>{{2, 0, 0}, {1, 3, 1}}));
    send.SetPeriodicSendTask(Bytes{22, 51});
    send.SendMutiMessages(Bytes{22, 52, 8, 255});
    send.SendSingleMessage(Bytes{22, 53, 8, 1, 0, 0, 0, 8, 1, 2});
    EXPECT_EQ(Messages(), std::vector<Told>{});
    EXPECT_TRUE(channels[0]->Frames().empty());
}

} // namespace
