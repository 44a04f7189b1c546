#include "net/CanSendFixture.h"

#include <algorithm>

namespace {

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
