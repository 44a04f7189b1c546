// What of the CAN classes needs a kernel with CAN: their results when devices come and go, and
// their sockets. Runs on the virtual board, beside the daemon, on channels that the daemon leaves
// alone.

#include "drivers/CanManage.h"
#include "net/BcmMessage.h"
#include "net/CanSend.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fcntl.h>

#include <gtest/gtest.h>

namespace {

using Drivers::CanManage;

constexpr int kChannel = 4;
constexpr CanTimeParam kTiming{{1, 16, 63, 16}, {2, 2, 7, 2}};

void Shell(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

bool StateHas(const std::string& word) {
    return std::system(("vboardctl can | grep '^can4 ' | grep -qw -- '" + word + "'").c_str()) == 0;
}

bool HasTasks() {
    return std::system("test $(vboardctl can tasks | grep -c '^can4 ') = 0") != 0;
}

class CanOnBoard : public testing::Test {
  protected:
    CanOnBoard() { can.SetTimeParam(kChannel, 1, &kTiming); }
    ~CanOnBoard() override {
        can.CloseDevice(kChannel);
        can.ClearAllStatus();
    }

    CanManage can{"/dev/norvane_can", "/dev/null"};
};

TEST_F(CanOnBoard, OpenAndCloseRaiseAndLowerBothCores) {
    EXPECT_EQ(can.OpenDevice(kChannel), 0);
    EXPECT_TRUE(StateHas("link=up port=up"));
    EXPECT_EQ(CanManage::GetDeviceStatus(kChannel), 1);
    EXPECT_GE(can.GetNorvaneCanIpCoreNetFd(kChannel), 0);
    EXPECT_EQ(can.CloseDevice(kChannel), 0);
    EXPECT_TRUE(StateHas("link=down port=down"));
    EXPECT_EQ(CanManage::GetDeviceStatus(kChannel), 0);
    EXPECT_LT(can.GetNorvaneCanIpCoreNetFd(kChannel), 0);
}

TEST_F(CanOnBoard, ACloseTellsAndZeroesTheCounters) {
    can.OpenDevice(kChannel);
    CanRxFrameNum[kChannel] = 1;
    CanTxFrameNum[kChannel] = 22;
    CanErrFrameNum[kChannel] = 333;
    CanFrameNum[kChannel] = 18446744073709551615U;
    testing::internal::CaptureStdout();
    can.CloseDevice(kChannel);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "CAN Channel 4 Rx: 1 Tx: 22 Er: 333 Al: 18446744073709551615\n");
    EXPECT_EQ(CanRxFrameNum[kChannel] + CanTxFrameNum[kChannel] + CanErrFrameNum[kChannel] +
                  CanFrameNum[kChannel],
              0U);
}

TEST_F(CanOnBoard, TheSelfAcknowledgeModeReachesTheCore) {
    EXPECT_EQ(can.SetSelfAckMode(kChannel, 1), -65282); // closed
    can.OpenDevice(kChannel);
    EXPECT_EQ(can.SetSelfAckMode(kChannel, 1), 0);
    EXPECT_TRUE(StateHas("selfack=1"));
    EXPECT_EQ(can.SetSelfAckMode(kChannel, 0), 0);
    EXPECT_TRUE(StateHas("selfack=0"));
}

TEST_F(CanOnBoard, WithoutTheMakersDeviceThereIsNoControl) {
    Shell("ip link set ncan4 name away");
    EXPECT_EQ(can.OpenDevice(kChannel), -8);
    Shell("ip link set away name ncan4");
}

TEST_F(CanOnBoard, WithoutTheXilinxDeviceTheChannelIsNeitherStartedNorStopped) {
    Shell("ip link set can4 name away");
    EXPECT_EQ(can.OpenDevice(kChannel), -3);
    EXPECT_EQ(CanManage::GetDeviceStatus(kChannel), 0);
    EXPECT_EQ(can.CloseDevice(kChannel), -4);
    Shell("ip link set away name can4");
}

TEST_F(CanOnBoard, WithoutTheMakersDeviceTheCoreIsNotLowered) {
    can.OpenDevice(kChannel);
    Shell("ip link set ncan4 down && ip link set ncan4 name away");
    EXPECT_EQ(can.CloseDevice(kChannel), -10);
    EXPECT_EQ(CanManage::GetDeviceStatus(kChannel), 1);
    Shell("ip link set away name ncan4");
}

TEST_F(CanOnBoard, TheSocketsDoNotBlock) {
    net::ZephCanCom channel(kChannel);
    ASSERT_EQ(channel.Open(), 0);
    EXPECT_NE(fcntl(channel.getfd2(), F_GETFL) & O_NONBLOCK, 0);
    const int first = channel.getfd2();
    ASSERT_EQ(channel.Open(), 0); // leaves no socket behind
    EXPECT_LT(fcntl(first, F_GETFD), 0);
}

TEST_F(CanOnBoard, AFullQueueFailsWithoutAWait) {
    can.OpenDevice(kChannel);
    net::ZephCanCom channel(kChannel);
    ASSERT_EQ(channel.Open(), 0);
    can_frame frame{};
    frame.can_dlc = 8;
    int result = 0;
    for (int i = 0; i < 100000 && result == 0; ++i) {
        result = channel.Write(&frame, 0, 0, 0); // nobody acknowledges: can5 is closed
    }
    EXPECT_TRUE(result == -ENOBUFS || result == -EAGAIN) << result;
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

TEST_F(CanOnBoard, AFrameForAChannelThatIsDownIsTriedTwice) {
    net::ZephCanCom channel(kChannel);
    ASSERT_EQ(channel.Open(), 0);
    can_frame frame{};
    WriteCalls(); // the stream's own buffers are made now
    const uint64_t before = WriteCalls();
    const int result = channel.Write(&frame, 0, 0, 0);
    EXPECT_EQ(WriteCalls() - before, 2U);
    EXPECT_EQ(result, -ENETDOWN);
}

TEST_F(CanOnBoard, AfterTheSocketsAreClosedNothingIsSent) {
    can.OpenDevice(kChannel);
    net::ZephCanComM sockets;
    net::CanSend send(nullptr, sockets);
    can_frame frame{};
    frame.can_id = 0x123;
    EXPECT_EQ(send.SetCANTask(kChannel, frame, 10, 0), 0);
    EXPECT_TRUE(HasTasks());
    send.CloseAllSocket();
    EXPECT_FALSE(HasTasks());
    EXPECT_EQ(send.SetCANTask(kChannel, frame, 10, 0), EBADF);
}

} // namespace
