#include "drivers/LinManageFixture.h"
#include "utils/UniqueFd.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

TEST_F(LinManageTest, TheNetDevicesAreToldAtTheStart) {
    EXPECT_EQ(made, "devName = LIN0\ndevName = LIN1\n");
    EXPECT_EQ(lin->maxChannelCount, 2);
    EXPECT_EQ(lin->getBaudrate(0), 0);
    EXPECT_EQ(lin->getBaudrate(1), 0);
}

TEST_F(LinManageTest, AChannelIsOpenFromOpenToClose) {
    Network("LIN1");
    EXPECT_EQ(LinManage::GetDeviceStatus(1), 0);
    EXPECT_EQ(lin->OpenDevice(1), 0);
    EXPECT_EQ(LinManage::GetDeviceStatus(1), 1);
    EXPECT_EQ(LinManage::GetDeviceStatus(0), 0);
    EXPECT_EQ(LinManage::statusMask, 2);
    EXPECT_EQ(lin->CloseDevice(1), 0);
    EXPECT_EQ(LinManage::GetDeviceStatus(1), 0);
}

TEST_F(LinManageTest, ASecondOpenIsToldAndOpensNothing) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    const int fd = LinManage::chrDevFd[0];
    const lin_rx_detil* const records = LinManage::GetRxMemmap(0);
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->OpenDevice(0), 0); }), "lin dev already open!\n");
    EXPECT_EQ(LinManage::chrDevFd[0], fd);
    EXPECT_EQ(LinManage::GetRxMemmap(0), records);
}

TEST_F(LinManageTest, ACloseOfAClosedChannelIsTold) {
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->CloseDevice(1), 0); }), "lin dev already close!\n");
}

TEST_F(LinManageTest, AMissingCharacterDeviceIsTold) {
    std::filesystem::remove(files.Path(0));
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->OpenDevice(0), -1); }),
              "drivers::LinManage::OpenDevice - open fd fail: \n");
    EXPECT_EQ(LinManage::GetDeviceStatus(0), 0);
}

TEST_F(LinManageTest, AMissingNetDeviceIsTold) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->OpenDevice(0), -1); }),
              "lin can_do_start communication fail\n"
              "drivers::LinManage::OpenDevice - open communnicaton fail: \n");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(LinManage::GetDeviceStatus(0), 0);
}

TEST_F(LinManageTest, ADescriptorOf0IsTold) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    const UniqueFd fd(LinManage::chrDevFd[0].exchange(0));
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->CloseDevice(0), -1); }),
              "drivers::LinManage::OpenDevice - close fd fail: 0\n");
    EXPECT_EQ(LinManage::GetDeviceStatus(0), 1);
}

TEST_F(LinManageTest, ANetDeviceThatDoesNotStopIsToldAndTriedAgainWithoutTheDescriptor) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    const int fd = LinManage::chrDevFd[0];
    alone.reset(); // home, where there is no such device
    testing::internal::CaptureStderr();
    const std::string fails = "lin can_do_stop communication fail\n"
                              "drivers::LinManage::OpenDevice - close communnicaton fail: 0\n";
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->CloseDevice(0), -1); }), fails);
    EXPECT_LT(fcntl(fd, F_GETFD), 0);
    // Somebody else opens something, and gets the same number.
    const UniqueFd another(dup2(STDERR_FILENO, fd));
    ASSERT_EQ(another.get(), fd);
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->CloseDevice(0), -1); }), fails);
    EXPECT_GE(fcntl(another.get(), F_GETFD), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(LinManage::GetDeviceStatus(0), 1);
    Forget();
}

TEST_F(LinManageTest, AConfigurationSetsTheBitRateAndKeepsTheMode) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    Rewind(0);
    EXPECT_EQ(lin->ParmCfg(0, 0, 1), 0); // read at 0, written behind it
    Rewind(0);
    files.Write(0, 0, files.Read(0, 128, 128)); // what the driver would report from now on
    const lin_operation op = Config(19200);
    EXPECT_EQ(lin->ChannelCfg(0, &op), 0);
    EXPECT_EQ(lin->getBaudrate(0), 19200);
    EXPECT_EQ(lin->getBaudrate(1), 0);
    Bytes expected{0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0x00, 0x4B};
    expected.resize(128);
    EXPECT_EQ(files.Read(0, 128, 128), expected);
    EXPECT_EQ(lin->CloseDevice(0), 0);
    EXPECT_EQ(lin->getBaudrate(0), 19200);
}

TEST_F(LinManageTest, AClosedChannelRefusesEverything) {
    const lin_operation op = Config(19200);
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->ChannelCfg(0, &op), -1); }),
              "Drivers::LinManage::ChannelCfg failed! dev off!\n");
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->ParmCfg(0, 1, 42), -1); }),
              "Drivers::LinManage::ParmCfg device don't open42\n");
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->OperationCfg(0, &op), -1); }),
              "Drivers::LinManage::OperationCfg failed! dev off!\n");
    EXPECT_EQ(lin->getBaudrate(0), 0);
    EXPECT_EQ(files.Read(0, 0, 12288), Bytes(12288));
}

TEST_F(LinManageTest, ADriverThatRefusesWritesFailsButForOperations) {
    LinManage::statusMask = 2;
    const UniqueFd full(open("/dev/full", O_RDWR | O_CLOEXEC));
    LinManage::chrDevFd[1] = full.get();
    const lin_operation op = Config(9600);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Told([&] { EXPECT_EQ(lin->ChannelCfg(1, &op), -1); }),
              "Drivers::LinManage::ChannelCfg send config failed!\n");
    EXPECT_EQ(lin->getBaudrate(1), 0);
    EXPECT_EQ(lin->ParmCfg(1, 0, 1), -1);
    EXPECT_EQ(lin->OperationCfg(1, &op), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "write: No space left on device\nwrite: No space left on device\n"
              "write: No space left on device\n");
    Forget();
}

TEST_F(LinManageTest, AnotherParameterIsRefusedWithoutAWrite) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    Rewind(0);
    EXPECT_EQ(lin->ParmCfg(0, 3, 1), -1);
    EXPECT_EQ(files.Read(0, 0, 12288), Bytes(12288));
    EXPECT_EQ(lseek(LinManage::chrDevFd[0], 0, SEEK_CUR), 128); // it was read
}

TEST_F(LinManageTest, NumbersThatAreNoChannelsAreClosed) {
    LinManage::statusMask = 3;
    for (const int ch : {-1, 2, 31, 32, 255}) {
        EXPECT_EQ(LinManage::GetDeviceStatus(ch), 0) << ch;
    }
    Forget();
}

TEST_F(LinManageTest, TheEndClosesBothChannels) {
    Network("LIN0");
    ASSERT_EQ(lin->OpenDevice(0), 0);
    EXPECT_EQ(Told([&] { lin.reset(); }), "lin dev already close!\n"); // the second one
    EXPECT_EQ(LinManage::statusMask, 0);
}

} // namespace
