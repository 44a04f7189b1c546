#include "net/ZephCanCom.h"

#include "doubles/CanSockets.h"
#include "net/HeldUpWriter.h"
#include "utils/UniqueFd.h"

#include <cerrno>
#include <fstream>
#include <string>

#include <arpa/inet.h>
#include <linux/can.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

namespace {

using net::ZephCanCom;
using Message = CanSockets::Message;

constexpr int kBadTypeOrMode = -61441;
constexpr int kSocketError = -61442;

// Gives a channel its sockets from outside.
class TwoSockets : public ZephCanCom {
  public:
    explicit TwoSockets(int raw, int bcm = -1) : ZephCanCom(0) { Set(raw, bcm); }
    void Set(int raw, int bcm = -1) {
        fd1_ = raw;
        fd2_ = bcm;
    }
    int Raw() const { return fd1_; }
};

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

class ZephCanComTest : public testing::Test {
  protected:
    ZephCanComTest() { sockets.Open(); }

    CanSockets sockets{0};
};

TEST_F(ZephCanComTest, AClassicFrameGoesOutWithItsMark) {
    can_frame frame{};
    frame.can_id = 0x123;
    frame.can_dlc = 2;
    frame.data[0] = 0xDE;
    frame.data[1] = 0xAD;
    EXPECT_EQ(sockets.Write(&frame, 0, 0, 0), 0);
    EXPECT_EQ(sockets.Frames(), (std::vector<Message>{{0x23, 1, 0, 0, 2, 0, 1, 0, //
                                                       0xDE, 0xAD, 0, 0, 0, 0, 0, 0}}));
}

TEST_F(ZephCanComTest, AClassicFrameGetsItsFlags) {
    can_frame frame{};
    frame.can_id = 0x12345678;
    EXPECT_EQ(sockets.Write(&frame, 0, 1, 1), 0);
    EXPECT_EQ(frame.can_id, 0x12345678U | CAN_EFF_FLAG | CAN_RTR_FLAG);
}

TEST_F(ZephCanComTest, AnExtendedIdThatHasItsFlagStaysAsItIs) {
    can_frame frame{};
    frame.can_id = 0x123 | CAN_EFF_FLAG;
    EXPECT_EQ(sockets.Write(&frame, 0, 0, 1), 0);
    EXPECT_EQ(frame.can_id, 0x123U | CAN_EFF_FLAG);
}

TEST_F(ZephCanComTest, AnFdFrameGoesOutWhole) {
    canfd_frame frame{};
    frame.can_id = 0x7FF;
    frame.len = 64;
    frame.data[63] = 0x3F;
    EXPECT_EQ(sockets.Write(&frame, 1, 1, 1), 0);
    Message expected(72, 0);
    expected[0] = 0xFF;
    expected[1] = 0x07;
    expected[3] = 0x80;
    expected[4] = 64;
    expected[5] = 1; // bit rate switch
    expected[6] = 1; // mark
    expected[71] = 0x3F;
    EXPECT_EQ(sockets.Frames(), std::vector<Message>{expected});
}

TEST_F(ZephCanComTest, NoFrameIsAPositiveError) {
    EXPECT_EQ(sockets.Write(nullptr, 0, 0, 0), 61446);
    EXPECT_EQ(sockets.Write(nullptr, 1, 0, 0), 61446);
}

TEST_F(ZephCanComTest, AnotherTypeIsReturned) {
    can_frame frame{};
    EXPECT_EQ(sockets.Write(&frame, 2, 0, 0), 2);
    EXPECT_EQ(sockets.Write(&frame, -7, 0, 0), -7);
    EXPECT_EQ(sockets.Frames(), std::vector<Message>{});
}

TEST_F(ZephCanComTest, AFullQueueFailsWithoutAWait) {
    can_frame frame{};
    int result = 0;
    for (int i = 0; i < 1000000 && result == 0; ++i) {
        result = sockets.Write(&frame, 0, 0, 0);
    }
    EXPECT_EQ(result, -EAGAIN);
}

// The kernel counts a thread's write calls, failed ones too.
uint64_t WriteCalls() {
    std::ifstream io("/proc/thread-self/io");
    for (std::string name; io >> name;) {
        uint64_t value = 0;
        io >> value;
        if (name == "syscw:") {
            return value;
        }
    }
    return 0;
}

// In a network of its own, whose loopback device is down: 0 when a write to it was tried `tries`
// times and failed as told.
int WriteToADeviceThatIsDown(uint64_t tries) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0 && unshare(CLONE_NEWNET) != 0) {
        return 2;
    }
    const int fd = socket(AF_PACKET, SOCK_RAW, 0);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex("lo"));
    bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    TwoSockets down(fd);
    can_frame frame{};
    WriteCalls(); // the stream's own buffers are made now
    const uint64_t before = WriteCalls();
    const int result = down.Write(&frame, 0, 0, 0);
    const uint64_t calls = WriteCalls() - before;
    if (result != -ENETDOWN) {
        return 3;
    }
    return calls == tries ? 0 : 4;
}

TEST_F(ZephCanComTest, AWriteToADeviceThatIsDownIsTriedTwice) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(WriteToADeviceThatIsDown(2));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0)
        << "2: no network namespace, 3: another error, 4: other tries";
}

TEST_F(ZephCanComTest, NothingIsReadHere) {
    EXPECT_EQ(sockets.Read(), kBadTypeOrMode);
}

TEST_F(ZephCanComTest, AClosedChannelTakesNoFrame) {
    EXPECT_EQ(sockets.CloseAll(1), 0);
    EXPECT_LT(sockets.getfd2(), 0);
    can_frame frame{};
    EXPECT_EQ(sockets.Write(&frame, 0, 0, 0), -EBADF);
}

TEST_F(ZephCanComTest, AnOrderlyCloseOfASoundSocketCloses) {
    const int fd = sockets.Raw();
    EXPECT_EQ(sockets.CloseAll(0), 0);
    EXPECT_FALSE(IsOpen(fd));
}

TEST_F(ZephCanComTest, AnotherCloseModeIsRefusedAndClosesNothing) {
    const int fd = sockets.Raw();
    EXPECT_EQ(ZephCanCom::Close(fd, 2), kBadTypeOrMode);
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_EQ(sockets.CloseAll(2), kSocketError);
    EXPECT_EQ(sockets.Raw(), fd);
}

// A raw socket that blocks when it is full, and the end at which its frames arrive.
struct BlockingPair {
    BlockingPair() {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds), 0);
        raw = fds[0];
        end.reset(fds[1]);
    }
    void Empty() const {
        for (char bytes[128]; recv(end.get(), bytes, sizeof(bytes), MSG_DONTWAIT) > 0;) {
        }
    }

    int raw = -1; // closed by the channel
    UniqueFd end;
};

TEST_F(ZephCanComTest, ACloseKeepsTheNumberFromOthersWhileAWriteIsHeldUp) {
    const BlockingPair first;
    TwoSockets channel(first.raw);
    can_frame frame{};
    HeldUpWriter writer(
        first.raw, CAN_MTU, [&] { return channel.Write(&frame, 0, 0, 0); }, [&] { first.Empty(); });
    EXPECT_EQ(channel.CloseAll(1), 0);
    EXPECT_LT(channel.Raw(), 0);
    EXPECT_TRUE(IsOpen(first.raw));
    EXPECT_EQ(writer.Release(), 0);
    const BlockingPair next;
    EXPECT_NE(next.raw, first.raw);
    channel.Set(next.raw);
    EXPECT_EQ(channel.CloseAll(1), 0);
    EXPECT_FALSE(IsOpen(first.raw));
    EXPECT_FALSE(IsOpen(next.raw));
}

// A socket whose peer has refused it.
int SocketWithError() {
    const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    bind(peer, reinterpret_cast<const sockaddr*>(&address), size);
    getsockname(peer, reinterpret_cast<sockaddr*>(&address), &size);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    connect(fd, reinterpret_cast<const sockaddr*>(&address), size); // nobody listens
    close(peer);
    return fd;
}

TEST_F(ZephCanComTest, AnOrderlyCloseKeepsASocketWithAPendingError) {
    const int fd = SocketWithError();
    EXPECT_EQ(ZephCanCom::Close(fd, 0), kSocketError);
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_EQ(ZephCanCom::Close(fd, 1), 0);
    EXPECT_FALSE(IsOpen(fd));
}

TEST_F(ZephCanComTest, AfterAFailedCloseTheSecondSocketIsNotTried) {
    const int sound = dup(sockets.Raw());
    TwoSockets broken(SocketWithError(), sound);
    EXPECT_EQ(broken.CloseAll(0), kSocketError);
    EXPECT_TRUE(IsOpen(sound));
    EXPECT_EQ(broken.getfd2(), sound);
    EXPECT_EQ(broken.CloseAll(1), 0);
    EXPECT_FALSE(IsOpen(sound));
}

TEST_F(ZephCanComTest, FlagsAreSetAndCheckedOnBothTypesAlone) {
    can_frame classic{};
    canfd_frame fd{};
    for (const auto& [frame, type] : {std::pair<void*, int>{&classic, 0}, {&fd, 1}}) {
        EXPECT_EQ(ZephCanCom::CheckExtendedFrame(frame, type), 0);
        EXPECT_EQ(ZephCanCom::CheckRemoteFrame(frame, type), 0);
        EXPECT_EQ(ZephCanCom::SetExtendedFrame(frame, type), 0);
        EXPECT_EQ(ZephCanCom::CheckExtendedFrame(frame, type), 1);
        EXPECT_EQ(ZephCanCom::CheckRemoteFrame(frame, type), 0);
        EXPECT_EQ(ZephCanCom::SetRemoteFrame(frame, type), 0);
        EXPECT_EQ(ZephCanCom::CheckRemoteFrame(frame, type), 1);
    }
    can_frame other{};
    EXPECT_EQ(ZephCanCom::SetExtendedFrame(&other, 2), 0);
    EXPECT_EQ(ZephCanCom::SetRemoteFrame(&other, -1), 0);
    EXPECT_EQ(other.can_id, 0U);
    EXPECT_EQ(ZephCanCom::CheckExtendedFrame(&other, 2), kBadTypeOrMode);
    EXPECT_EQ(ZephCanCom::CheckRemoteFrame(&other, 2), kBadTypeOrMode);
}

TEST_F(ZephCanComTest, SocketsAreMadeNonBlockingAndSized) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, fds), 0);
    EXPECT_EQ(ZephCanCom::SetSocketNonBlock(fds[0]), 0);
    EXPECT_NE(fcntl(fds[0], F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(ZephCanCom::SetSocketSendBuffer(fds[0]), 0);
    EXPECT_EQ(ZephCanCom::SetSocketRecvBuffer(fds[0]), 0);
    int size = 0;
    socklen_t length = sizeof(size);
    getsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, &length);
    EXPECT_EQ(size, 2 * ZephCanCom::canSocketSendBufferSize); // the kernel keeps twice the number
    getsockopt(fds[0], SOL_SOCKET, SO_RCVBUF, &size, &length);
    EXPECT_EQ(size, 2 * ZephCanCom::canSocketRecvBufferSize);
    EXPECT_EQ(ZephCanCom::SetSocketNonBlock(-1), -1);
    close(fds[0]);
    close(fds[1]);
}

TEST(ZephCanComOpen, AChannelWithoutItsDeviceTellsTheError) {
    ZephCanCom channel(0);
    testing::internal::CaptureStdout();
    const int error = channel.Open();
    const std::string told = testing::internal::GetCapturedStdout();
    EXPECT_GT(error, 0);
    char expected[40];
    snprintf(expected, sizeof(expected), "Open fd failed: 0x%x\n", static_cast<unsigned>(error));
    EXPECT_EQ(told, expected);
    EXPECT_LT(channel.getfd2(), 0);
}

class ZephCanComMTest : public testing::Test {
  protected:
    net::ZephCanComM manager;
    std::array<std::shared_ptr<CanSockets>, 6> channels = CanSockets::Replace(manager);
};

TEST_F(ZephCanComMTest, AChannelIsOpenFromOpenToClose) {
    EXPECT_EQ(manager.GetComNetStatus(5), 0);
    EXPECT_EQ(manager.CanComMOpen(5), 0);
    EXPECT_EQ(manager.GetComNetStatus(5), 1);
    EXPECT_EQ(manager.GetComNetStatus(4), 0);
    EXPECT_GE(manager.GetFd2(5), 0);
    EXPECT_EQ(manager.CloseCallback(5, 1), 0);
    EXPECT_EQ(manager.GetComNetStatus(5), 0);
    EXPECT_LT(manager.GetFd2(5), 0);
}

TEST_F(ZephCanComMTest, AFailedOpenStillCountsAsAskedFor) {
    net::ZephCanComM deviceless;
    EXPECT_EQ(deviceless.CanComMOpen(0), 0);
    EXPECT_EQ(deviceless.GetComNetStatus(0), 1);
}

TEST_F(ZephCanComMTest, AFailedCloseStillCountsAsAskedFor) {
    manager.CanComMOpen(0);
    EXPECT_EQ(manager.CloseCallback(0, 2), kSocketError);
    EXPECT_EQ(manager.GetComNetStatus(0), 0);
}

TEST_F(ZephCanComMTest, Channel6IsRefused) {
    can_frame frame{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(manager.CanComMOpen(6), -61444);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "CanComMOpen: dev channel is invalid\n");
    EXPECT_EQ(manager.WriteCallback(6, &frame, 0, 0, 0), -61444);
    EXPECT_EQ(manager.CloseCallback(6, 1), -61444);
    EXPECT_EQ(manager.GetComNetStatus(6), -61444);
    EXPECT_EQ(manager.GetComNetStatus(255), -61444);
    EXPECT_LT(manager.GetFd2(6), 0);
}

TEST_F(ZephCanComMTest, Type2IsRefused) {
    can_frame frame{};
    manager.CanComMOpen(0);
    EXPECT_EQ(manager.WriteCallback(0, &frame, 2, 0, 0), -61441);
    EXPECT_EQ(manager.WriteCallback(0, &frame, -1, 0, 0), -1); // the channel's own refusal
    EXPECT_EQ(manager.WriteCallback(0, &frame, 0, 0, 0), 0);
    EXPECT_EQ(channels[0]->Frames().size(), 1U);
    EXPECT_EQ(channels[1]->opened, 0);
}

} // namespace
