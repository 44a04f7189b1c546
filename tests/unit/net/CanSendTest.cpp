#include "net/CanSend.h"

#include "doubles/CanSockets.h"
#include "drivers/CanManage.h"
#include "net/BcmMessage.h"
#include "support/BoardTest.h"

#include <algorithm>
#include <cstring>

namespace {

using Drivers::CanManage;

constexpr uint8_t kRemote = 0x20; // and the bit rate switch of an FD frame
constexpr uint8_t kFd = 0x40;
constexpr uint32_t kExtended = 0x80000000;
constexpr canid_t kRtr = CAN_RTR_FLAG;

// A message to the broadcast manager, as far as the tests ask.
struct Told {
    uint32_t opcode;
    uint32_t flags;
    canid_t id;
    size_t size = 72;

    bool operator==(const Told&) const = default;
};

void PrintTo(const Told& told, std::ostream* out) {
    *out << "opcode " << told.opcode << " flags " << told.flags << " id " << std::hex << told.id
         << std::dec << " size " << told.size;
}

class CanSendTest : public BoardTest {
  protected:
    CanSendTest() {
        board.SetCounter(100000000); // 1 s
        for (size_t ch = 0; ch < 6; ++ch) {
            CanManage::BaudRate_[ch] = 500000;
            CanManage::DataBaudRate_[ch] = 2000000;
        }
    }

    static void Put(Bytes& to, uint64_t value, int size) {
        for (int i = 0; i < size; ++i) {
            to.push_back(static_cast<uint8_t>(value >> 8 * i));
        }
    }

    static Bytes Entry(uint32_t id, uint16_t periodMs, uint8_t flags, const Bytes& data = {}) {
        Bytes entry;
        Put(entry, id, 4);
        Put(entry, periodMs, 2);
        entry.push_back(flags);
        entry.insert(entry.end(), data.begin(), data.end());
        return entry;
    }

    // The same without a period: of a burst, and of a single request.
    static Bytes Frame(uint32_t id, uint8_t flags, const Bytes& data = {}) {
        Bytes entry = Entry(id, 0, flags, data);
        entry.erase(entry.begin() + 4, entry.begin() + 6);
        return entry;
    }

    static Bytes Request(uint8_t ch, const std::vector<Bytes>& entries) {
        Bytes request{22, 0, static_cast<uint8_t>(ch + 8), static_cast<uint8_t>(entries.size())};
        for (const Bytes& entry : entries) {
            request.insert(request.end(), entry.begin(), entry.end());
        }
        return request;
    }

    void Periodic(uint8_t ch, const std::vector<Bytes>& entries) {
        send.SetPeriodicSendTask(Request(ch, entries));
    }

    static net::BcmHead Head(const CanSockets::Message& message) {
        net::BcmHead head{};
        std::memcpy(&head, message.data(), sizeof(head));
        return head;
    }

    std::vector<Told> Messages(size_t ch = 0) {
        std::vector<Told> told;
        for (const auto& message : channels.at(ch)->Periodic()) {
            const auto head = Head(message);
            told.push_back({head.opcode, head.flags, head.can_id, message.size()});
        }
        return told;
    }

    static can_frame FrameOf(const CanSockets::Message& message) {
        can_frame frame{};
        std::memcpy(&frame, message.data() + sizeof(net::BcmHead), sizeof(frame));
        return frame;
    }

    static uint64_t FirstDelayUs(const CanSockets::Message& message) {
        const auto head = Head(message);
        return static_cast<uint64_t>(head.ival1.tv_sec) * 1000000 +
               static_cast<uint64_t>(head.ival1.tv_usec);
    }

    net::ZephCanComM sockets;
    std::array<std::shared_ptr<CanSockets>, 6> channels = CanSockets::Replace(sockets);
    net::CanSend send{nullptr, sockets};
};

const Bytes kEight{1, 2, 3, 4, 5, 6, 7, 8};

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

TEST_F(CanSendTest, ABurstGoesOutInOrder) {
    send.SendMutiMessages(
        Request(2, {Frame(0x123, 2, {0xDE, 0xAD}), Frame(0x1 | kExtended, kRemote),
                    Frame(0x456, kFd | kRemote | 9, Bytes(12, 0x11))}));
    const auto frames = channels[2]->Frames();
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[0], (Bytes{0x23, 1, 0, 0, 2, 0, 1, 0, 0xDE, 0xAD, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(frames[1], (Bytes{1, 0, 0, 0xC0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    Bytes fd(72, 0);
    fd[0] = 0x56;
    fd[1] = 4;
    fd[4] = 12;
    fd[5] = 1;
    fd[6] = 1;
    std::fill_n(fd.begin() + 8, 12, 0x11);
    EXPECT_EQ(frames[2], fd);
}

TEST_F(CanSendTest, ABurstOf255FramesIsSentWhole) {
    std::vector<Bytes> entries;
    for (uint32_t i = 0; i < 255; ++i) {
        entries.push_back(Frame(i, kFd | 15, Bytes(64, static_cast<uint8_t>(i))));
    }
    send.SendMutiMessages(Request(0, entries));
    const auto frames = channels[0]->Frames();
    ASSERT_EQ(frames.size(), 255U);
    EXPECT_EQ(frames.back()[0], 254);
    EXPECT_EQ(frames.back()[71], 254);
}

TEST_F(CanSendTest, EachDlcCodeHasItsLength) {
    const uint8_t lengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    for (uint8_t code = 0; code < 16; ++code) {
        send.SendMutiMessages(Request(0, {Frame(1, kFd | code, Bytes(lengths[code], 0xEE))}));
        const auto frame = channels[0]->Frames().at(0);
        EXPECT_EQ(frame[4], lengths[code]);
        EXPECT_EQ(std::count(frame.begin(), frame.end(), 0xEE), lengths[code]);
    }
}

TEST_F(CanSendTest, ASingleFrameGoesOut) {
    Bytes request{22, 53, 13};
    const Bytes frame = Frame(0x7FF, 3, {1, 2, 3});
    request.insert(request.end(), frame.begin(), frame.end());
    send.SendSingleMessage(request);
    EXPECT_EQ(channels[5]->Frames(), (std::vector<Bytes>{{0xFF, 7, 0, 0, 3, 0, 1, 0, //
                                                          1, 2, 3, 0, 0, 0, 0, 0}}));
}

TEST_F(CanSendTest, TheInstanceKeepsItsFirstLoop) {
    auto* const first = net::CanSend::GetInstance(nullptr);
    EXPECT_EQ(net::CanSend::GetInstance(reinterpret_cast<ZephEventLoop*>(this)), first);
    EXPECT_EQ(first->GetLoop(), nullptr);
}

TEST(CanInfo, TheKindPlaysNoPartInTheKey) {
    const net::CanInfo classic{1, 2, net::CAN_Task};
    const net::CanInfo fd{1, 2, net::CAN_FD_Task};
    const net::CanInfo other{1, 3, net::CAN_Task};
    EXPECT_EQ(classic, fd);
    EXPECT_FALSE(classic == other);
    EXPECT_EQ(net::CanInfoHash()(classic),
              (std::hash<canid_t>()(1) << 1) ^ std::hash<uint8_t>()(2));
}

} // namespace
