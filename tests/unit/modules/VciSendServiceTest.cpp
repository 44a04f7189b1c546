#include "modules/VciSendService.h"

#include "base/ZephEventLoop.h"
#include "base/ZephEventLoopThreadPool.h"
#include "doubles/CanSockets.h"
#include "support/ServiceTest.h"

namespace {

using Drivers::CanManage;

constexpr uint8_t kOutOfRange = 11;
constexpr uint8_t kWrongSequence = 12;
constexpr uint8_t kListening = 160;

class VciSendServiceTest : public ServiceTest {
  protected:
    VciSendServiceTest() {
        service.emplace(&loop, std::make_shared<ZephEventLoopThreadPool>(&loop, 1));
        CanManage::statusMask_ = 1 << 0 | 1 << 5;
        CanManage::ListenstatusMask_ = 0;
        CanManage::BaudRate_[0] = 500000;
        for (const auto& channel : channels) {
            channel->Open(); // afresh
            channel->beforePeriodic = nullptr;
        }
        net::CanSend::GetInstance(nullptr)->ClearPeriodicSendTask();
    }

    Bytes Ask(const Bytes& request) { return ServiceTest::Ask(*service, request); }
    void Send(const Bytes& request) { ServiceTest::Send(*service, request); }

    static Bytes Periodic(uint8_t channel) { return {22, 51, channel, 1, 0x23, 1, 0, 0, 10, 0, 0}; }
    static Bytes Burst(uint8_t channel) {
        return {22, 52, channel, 2, 1, 0, 0, 0, 0, 2, 0, 0, 0, 0};
    }
    static Bytes Single(uint8_t channel) { return {22, 53, channel, 0x23, 1, 0, 0, 1, 0xAA}; }

    std::array<std::shared_ptr<CanSockets>, 6>& channels = CanSockets::OfProgram();
    ZephEventLoop loop;
    std::optional<VciSendService> service;
};

TEST_F(VciSendServiceTest, APeriodicRequestIsAnsweredBeforeAnythingIsDone) {
    size_t answersBefore = 0;
    channels[0]->beforePeriodic = [&] { answersBefore = Answers().size(); };
    Send(Periodic(8));
    EXPECT_EQ(answersBefore, 1U);
    EXPECT_TRUE(Answers().empty());
    EXPECT_EQ(channels[0]->Periodic().size(), 1U);
}

TEST_F(VciSendServiceTest, APeriodicRequestIsAnsweredWithTheTime) {
    ExpectTime(Ask(Periodic(8)), 22, 51);
}

TEST_F(VciSendServiceTest, ABurstIsSentAndAnsweredWithTheTime) {
    ExpectTime(Ask(Burst(13)), 22, 52);
    EXPECT_EQ(channels[5]->Frames().size(), 2U);
}

// Counts the answers that wait when a frame is written.
class WatchedSockets : public CanSockets {
  public:
    using CanSockets::CanSockets;
    int Write(void* frame, int type, int protocol, int extend) override {
        beforeWrite();
        return CanSockets::Write(frame, type, protocol, extend);
    }
    std::function<void()> beforeWrite;
};

TEST_F(VciSendServiceTest, ABurstIsAnsweredWhenItIsSent) {
    const auto watched = std::make_shared<WatchedSockets>(0);
    watched->Open();
    size_t answersBefore = 99;
    watched->beforeWrite = [&] { answersBefore = Answers().size(); };
    net::ZephCanComM::GetInstance().ReplaceChannel(0, watched);
    ExpectTime(Ask(Burst(8)), 22, 52);
    EXPECT_EQ(answersBefore, 0U);
    net::ZephCanComM::GetInstance().ReplaceChannel(0, channels[0]);
}

TEST_F(VciSendServiceTest, ASingleFrameIsSentWithoutAnAnswer) {
    Send(Single(8));
    EXPECT_TRUE(Answers().empty());
    EXPECT_EQ(channels[0]->Frames(),
              (std::vector<Bytes>{{0x23, 1, 0, 0, 1, 0, 1, 0, 0xAA, 0, 0, 0, 0, 0, 0, 0}}));
}

TEST_F(VciSendServiceTest, OtherChannelsAreOutOfRange) {
    for (const uint8_t channel : Bytes{0, 7, 14, 255}) {
        ExpectRefusal(Ask(Periodic(channel)), kOutOfRange, 22, 51);
        ExpectRefusal(Ask(Burst(channel)), kOutOfRange, 22, 52);
        ExpectRefusal(Ask(Single(channel)), kOutOfRange, 22, 53);
    }
}

TEST_F(VciSendServiceTest, AClosedChannelIsAWrongSequence) {
    ExpectRefusal(Ask(Periodic(9)), kWrongSequence, 22, 51);
    ExpectRefusal(Ask(Burst(9)), kWrongSequence, 22, 52);
    ExpectRefusal(Ask(Single(9)), kWrongSequence, 22, 53);
    EXPECT_TRUE(channels[1]->Frames().empty());
    EXPECT_TRUE(channels[1]->Periodic().empty());
}

TEST_F(VciSendServiceTest, AListeningChannelSendsNothing) {
    CanManage::ListenstatusMask_ = 1;
    ExpectRefusal(Ask(Periodic(8)), kListening, 22, 51);
    ExpectRefusal(Ask(Burst(8)), kListening, 22, 52);
    ExpectRefusal(Ask(Single(8)), kListening, 22, 53);
    EXPECT_TRUE(channels[0]->Frames().empty());
    EXPECT_TRUE(channels[0]->Periodic().empty());
}

TEST_F(VciSendServiceTest, AClosedListeningChannelIsAWrongSequence) {
    CanManage::ListenstatusMask_ = 2;
    ExpectRefusal(Ask(Burst(9)), kWrongSequence, 22, 52);
}

TEST_F(VciSendServiceTest, UnknownServicesAreRefused) {
    ExpectRefusal(Ask({22, 54, 8}), 14, 22, 54);
    ExpectRefusal(Ask({22, 50, 8}), 14, 22, 50);
}

TEST_F(VciSendServiceTest, ACountBeyondTheBytesSentReadsWhatStandsInTheBuffer) {
    // Of two entries the second stays in the buffer, behind the next request and its handle.
    Bytes first{22, 52, 8, 2, 1, 0, 0, 0, 0x48};
    first.resize(first.size() + 8, 0);
    const Bytes left{0, 0, 0, 0, 1, 0xAA};
    first.insert(first.end(), left.begin(), left.end());
    Ask(first);
    channels[0]->Frames();
    // Its data reach over the handle up to what was left.
    Ask({22, 52, 8, 255, 5, 0, 0, 0, 0x48, 9, 9});
    const auto frames = channels[0]->Frames();
    ASSERT_EQ(frames.size(), 255U);
    EXPECT_EQ(frames[0][0], 5);
    EXPECT_EQ(frames[1], (Bytes{0, 0, 0, 0, 1, 0, 1, 0, 0xAA, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(VciSendServiceTest, ARefusedPeriodicWriteIsOnlyTold) {
    channels[0]->BreakPeriodic();
    testing::internal::CaptureStdout();
    ExpectTime(Ask(Periodic(8)), 22, 51);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ZephCanCom::WriteCanFrame errno =32\n");
}

} // namespace
