#include "doubles/LinSocket.h"
#include "drivers/LinManage.h"
#include "net/HeldUpWriter.h"
#include "net/ZephLinComM.h"
#include "utils/UniqueFd.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/can.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using Drivers::LinManage;

constexpr int kNetClosed = -61443;
constexpr int kBadChannel = -61444;
constexpr int kDeviceClosed = -61445;

// What `work` prints.
template <typename Work> std::string Told(const Work& work) {
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}

template <typename Work> std::string Complained(const Work& work) {
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

// Gives a channel its socket from outside.
class OneSocket : public ZephLinCom {
  public:
    explicit OneSocket(int fd) : ZephLinCom(0) { fd_ = fd; }
    int Fd() const { return fd_; }
};

TEST(ZephLinCom, TellsItself) {
    EXPECT_EQ(Told([] { const ZephLinCom channel(1); }), "ZephLinCom1 has created\n");
}

TEST(ZephLinCom, AFrameGoesOutWhole) {
    LinSocket channel(0);
    channel.Open();
    canfd_frame frame{};
    frame.can_id = 0xC1;
    frame.len = 40;
    frame.data[0] = 0xAB;
    frame.data[63] = 0xCD;
    EXPECT_EQ(channel.Write(&frame), 0);
    LinSocket::Frame expected(72);
    expected[0] = 0xC1;
    expected[4] = 40;
    expected[8] = 0xAB;
    expected[71] = 0xCD;
    EXPECT_EQ(channel.Frames(), std::vector<LinSocket::Frame>{expected});
}

TEST(ZephLinCom, NoFrameIsTold) {
    LinSocket channel(0);
    channel.Open();
    EXPECT_EQ(Told([&] { EXPECT_EQ(channel.Write(nullptr), -1); }),
              "ZephLinCom::Write cfd_frame is nullptr\n");
}

TEST(ZephLinCom, AFailedWriteIsToldWithItsPid) {
    ZephLinCom closed(0);
    canfd_frame frame{};
    frame.can_id = 0xC1;
    EXPECT_EQ(Complained([&] {
                  EXPECT_EQ(Told([&] { EXPECT_EQ(closed.Write(&frame), -1); }),
                            "pid: 193 ,send fail\n");
              }),
              "write error: Bad file descriptor\n");
}

TEST(ZephLinCom, AChannelWithoutItsNetDeviceIsNotOpened) {
    OneSocket channel(-1);
    // Whether this machine has CAN sockets at all decides how far it comes.
    const UniqueFd can(socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW));
    std::string told;
    const std::string complaint =
        Complained([&] { told = Told([&] { EXPECT_EQ(channel.Open(), -1); }); });
    if (can) {
        EXPECT_EQ(told, "1 socket fd_：" + std::to_string(can.get() + 1) + "\n");
        EXPECT_EQ(complaint, "Interface index retrieval failed: No such device\n");
    } else {
        EXPECT_EQ(told, "");
        EXPECT_EQ(complaint,
                  "Socket creation failed: " + std::string(strerror(EAFNOSUPPORT)) + "\n");
    }
    EXPECT_LT(channel.Fd(), 0);
}

TEST(ZephLinCom, BothModesCloseASoundSocketAndAnotherNone) {
    LinSocket channel(0);
    for (const int mode : {0, 1}) {
        channel.Open();
        const int fd = channel.Fd();
        EXPECT_EQ(channel.Close(2), -1);
        EXPECT_EQ(channel.Close(-1), -1);
        EXPECT_EQ(channel.Fd(), fd);
        EXPECT_TRUE(IsOpen(fd));
        EXPECT_EQ(channel.Close(mode), 0) << mode;
        EXPECT_FALSE(IsOpen(fd)) << mode;
        EXPECT_LT(channel.Fd(), 0);
    }
}

TEST(ZephLinCom, ACloseOfAnotherModeDisturbsNoWriter) {
    LinSocket channel(0);
    channel.Open();
    std::atomic<bool> done{false};
    std::atomic<int> failed{0};
    std::thread writer([&] {
        const canfd_frame frame{};
        while (!done) {
            failed += channel.Write(&frame) == 0 ? 0 : 1;
        }
    });
    for (int i = 0; i < 5000; ++i) {
        EXPECT_EQ(channel.Close(2), -1);
        channel.Frames(); // so that the writer goes on
    }
    done = true;
    channel.Frames(); // for one that waits for room; it is the last
    writer.join();
    EXPECT_EQ(failed, 0);
}

TEST(ZephLinCom, ACloseKeepsTheNumberFromOthersWhileAWriteIsHeldUp) {
    LinSocket channel(0);
    channel.Open();
    const int fd = channel.Fd();
    const canfd_frame frame{};
    HeldUpWriter writer(
        fd, sizeof(frame), [&] { return channel.Write(&frame); }, [&] { channel.Frames(); });
    EXPECT_EQ(channel.Close(1), 0);
    EXPECT_LT(channel.Fd(), 0);
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_EQ(writer.Release(), 0);
    channel.Open();
    const int next = channel.Fd();
    EXPECT_NE(next, fd);
    EXPECT_EQ(channel.Close(1), 0);
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_FALSE(IsOpen(next));
}

// A socket whose peer has refused it.
int SocketWithError() {
    const UniqueFd peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    bind(peer.get(), reinterpret_cast<const sockaddr*>(&address), size);
    getsockname(peer.get(), reinterpret_cast<sockaddr*>(&address), &size);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    connect(fd, reinterpret_cast<const sockaddr*>(&address), size); // nobody listens
    return fd;
}

TEST(ZephLinCom, AnOrderlyCloseKeepsASocketWithAnError) {
    OneSocket channel(SocketWithError());
    const int fd = channel.Fd();
    EXPECT_EQ(channel.Close(0), -1);
    EXPECT_EQ(channel.Fd(), fd);
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_EQ(channel.Close(1), 0);
    EXPECT_FALSE(IsOpen(fd));
}

TEST(ZephLinCom, AnOrderlyCloseTakesASocketThatCannotEndItsSendingSide) {
    // As a raw CAN socket answers: a netlink socket has no sides either.
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    ASSERT_LT(shutdown(fd, SHUT_WR), 0);
    ASSERT_EQ(errno, EOPNOTSUPP);
    OneSocket channel(fd);
    EXPECT_EQ(channel.Close(0), 0);
    EXPECT_FALSE(IsOpen(fd));
}

TEST(ZephLinCom, AnOrderlyCloseOfAnythingButASocketFails) {
    OneSocket channel(open("/dev/null", O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(channel.Close(0), -1);
    EXPECT_TRUE(IsOpen(channel.Fd()));
}

TEST(ZephLinCom, ReadAndErrorUploadDoNothing) {
    ZephLinCom channel(0);
    EXPECT_EQ(Told([&] {
                  EXPECT_EQ(channel.Read(), 0);
                  EXPECT_EQ(channel.ErrUpload(), 0);
              }),
              "");
}

class ZephLinComMTest : public testing::Test {
  protected:
    ZephLinComMTest() { LinManage::statusMask = 3; }
    ~ZephLinComMTest() override { LinManage::statusMask = 0; }

    ZephLinComM manager;
    std::array<std::shared_ptr<LinSocket>, 2> channels = LinSocket::Replace(manager);
};

TEST_F(ZephLinComMTest, TellsItselfAndItsChannels) {
    EXPECT_EQ(Told([] { const ZephLinComM another; }),
              "ZephLinComM has created\nZephLinCom0 has created\nZephLinCom1 has created\n");
}

TEST_F(ZephLinComMTest, AChannelIsOpenFromOpenToClose) {
    EXPECT_EQ(manager.GetComNetStatus(1), 0);
    EXPECT_EQ(manager.LinComMOpen(1), 0);
    EXPECT_EQ(manager.GetComNetStatus(1), 1);
    EXPECT_EQ(manager.GetComNetStatus(0), 0);
    canfd_frame frame{};
    EXPECT_EQ(manager.WriteCallback(1, &frame), 0);
    EXPECT_EQ(channels[1]->Frames().size(), 1U);
    EXPECT_EQ(manager.LinComMClose(1, 0), 0);
    EXPECT_EQ(channels[1]->closeModes, std::vector<int>{0});
    EXPECT_EQ(manager.GetComNetStatus(1), 0);
}

TEST_F(ZephLinComMTest, ASecondOpenIsToldAndOpensNothing) {
    manager.LinComMOpen(0);
    const int fd = channels[0]->Fd();
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMOpen(0), 0); }), "lin socket already open!\n");
    EXPECT_EQ(channels[0]->Fd(), fd);
}

TEST_F(ZephLinComMTest, AnOpenOfAClosedDeviceIsToldAsOpenAlready) {
    LinManage::statusMask = 2;
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMOpen(0), 0); }), "lin socket already open!\n");
    EXPECT_EQ(manager.GetComNetStatus(0), 0);
    EXPECT_LT(channels[0]->Fd(), 0);
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMOpen(2), 0); }), "lin socket already open!\n");
}

TEST_F(ZephLinComMTest, AFailedOpenIsToldAndLeavesTheChannelClosed) {
    channels[0]->failOpen = true;
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMOpen(0), -1); }),
              "ZephLinComM::LinComMOpen： socket open fail\n");
    EXPECT_EQ(manager.GetComNetStatus(0), 0);
}

TEST_F(ZephLinComMTest, ACloseChecksChannelDeviceAndNetInThisOrder) {
    LinManage::statusMask = 2;
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMClose(2, 0), kBadChannel); }), "");
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMClose(0, 0), kDeviceClosed); }),
              "ZephLinComM::LinComMClose： device do not open\n");
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMClose(1, 0), kNetClosed); }),
              "ZephLinComM::LinComMClose： net already close\n");
    EXPECT_TRUE(channels[1]->closeModes.empty());
}

TEST_F(ZephLinComMTest, AFailedCloseIsToldAndLeavesTheChannelOpen) {
    manager.LinComMOpen(0);
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.LinComMClose(0, 2), -1); }),
              "ZephLinComM::LinComMClose： socket close fail\n");
    EXPECT_EQ(manager.GetComNetStatus(0), 1);
}

TEST_F(ZephLinComMTest, AWriteChecksDeviceChannelAndNetInThisOrder) {
    canfd_frame frame{};
    LinManage::statusMask = 2 | 4;
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.WriteCallback(0, &frame), kDeviceClosed); }),
              "ZephLinComM::WriteCallback： device do not open\n");
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.WriteCallback(9, &frame), kDeviceClosed); }),
              "ZephLinComM::WriteCallback： device do not open\n");
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.WriteCallback(2, &frame), kBadChannel); }), "");
    EXPECT_EQ(Told([&] { EXPECT_EQ(manager.WriteCallback(1, &frame), kNetClosed); }),
              "ZephLinComM::WriteCallback： net close\n");
}

TEST_F(ZephLinComMTest, ARefusedWriteGivesWhatTheChannelGives) {
    manager.LinComMOpen(0);
    channels[0]->refuse = true;
    canfd_frame frame{};
    EXPECT_EQ(manager.WriteCallback(0, &frame), -1);
}

TEST_F(ZephLinComMTest, AnErrorUploadChecksDeviceAndChannel) {
    LinManage::statusMask = 1 | 4;
    EXPECT_EQ(manager.ErrUploadCallback(1), kDeviceClosed);
    EXPECT_EQ(manager.ErrUploadCallback(2), kBadChannel);
    EXPECT_GE(manager.ErrUploadCallback(0), 0);
}

TEST_F(ZephLinComMTest, TheStatusOfNoChannelIsAnError) {
    EXPECT_EQ(manager.GetComNetStatus(2), kBadChannel);
    EXPECT_EQ(manager.GetComNetStatus(255), kBadChannel);
}

} // namespace
