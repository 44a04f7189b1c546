#include "drivers/LinDriver.h"

#include "utils/UniqueFd.h"

#include <cstdint>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<uint8_t>;
using Drivers::LinDriver;

// The character device as a pair of sockets: what the driver reports, and what it is given.
class LinDriverTest : public testing::Test {
  protected:
    LinDriverTest() {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds), 0);
        device.reset(fds[0]);
        kernel.reset(fds[1]);
    }

    void Report(const Bytes& record) const {
        EXPECT_EQ(send(kernel.get(), record.data(), record.size(), 0),
                  static_cast<ssize_t>(record.size()));
    }

    // The only record that was written; empty when none was.
    Bytes Written() const {
        Bytes bytes(256);
        const ssize_t got = recv(kernel.get(), bytes.data(), bytes.size(), 0);
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        EXPECT_LT(recv(kernel.get(), nullptr, 0, MSG_PEEK), 0) << "a second record";
        return bytes;
    }

    // Each byte of it other than the next.
    static Bytes Reported() {
        Bytes record(128);
        for (size_t i = 0; i < record.size(); ++i) {
            record[i] = static_cast<uint8_t>(0x80 + i);
        }
        std::fill_n(record.begin(), 4, uint8_t{0}); // LIN_CONFIG
        return record;
    }

    static lin_operation Config(uint32_t bitrate) {
        lin_operation op{};
        op.ot = LIN_CONFIG;
        op.data.config.lversion = LIN_2_1;
        op.data.config.lmode = COMMANDER;
        op.data.config.psupply = EXTERNAL;
        op.data.config.bitrate = bitrate;
        op.data.config.wakeup_long = 0xFFFFFFFF;
        op.data.config.clear_response = 0xFF;
        op.data.config.open_rx = 0xFF;
        return op;
    }

    UniqueFd device;
    UniqueFd kernel;
    LinDriver driver{"LIN0"};
};

TEST_F(LinDriverTest, AConfigurationChangesVersionSupplyAndBitRateAlone) {
    Report(Reported());
    const lin_operation op = Config(0x4B00); // 19200 bit/s
    EXPECT_EQ(driver.ChannelCfg(device.get(), &op), 0);
    Bytes expected = Reported();
    const Bytes version{2, 0, 0, 0};
    const Bytes supplyAndRate{1, 0, 0, 0, 0x00, 0x4B, 0, 0};
    std::copy(version.begin(), version.end(), expected.begin() + 8);
    std::copy(supplyAndRate.begin(), supplyAndRate.end(), expected.begin() + 16);
    EXPECT_EQ(Written(), expected);
}

TEST_F(LinDriverTest, EachParameterChangesItsFieldAlone) {
    Report(Reported());
    EXPECT_EQ(driver.ParmCfg(device.get(), 0, 0x01020304), 0);
    Bytes mode = Reported();
    const Bytes value{4, 3, 2, 1};
    std::copy(value.begin(), value.end(), mode.begin() + 12);
    EXPECT_EQ(Written(), mode);

    Report(Reported());
    EXPECT_EQ(driver.ParmCfg(device.get(), 1, 0x0107), 0);
    Bytes openRx = Reported();
    openRx[29] = 7;
    EXPECT_EQ(Written(), openRx);

    Report(Reported());
    EXPECT_EQ(driver.ParmCfg(device.get(), 2, 0x01FF), 0);
    Bytes clear = Reported();
    clear[28] = 0xFF;
    EXPECT_EQ(Written(), clear);
}

TEST_F(LinDriverTest, AnotherParameterReadsAndDoesNotWrite) {
    for (const int param : {3, -1, 1000}) {
        Report(Reported());
        EXPECT_EQ(driver.ParmCfg(device.get(), param, 1), -1);
        EXPECT_EQ(Written(), Bytes{});
        Bytes byte(1);
        EXPECT_LT(recv(device.get(), byte.data(), 1, MSG_PEEK), 0) << "the record was not read";
    }
}

TEST_F(LinDriverTest, WhatAShortReadLeavesOutIs0) {
    Report(Bytes(10, 0x55)); // up to the low half of the version
    EXPECT_EQ(driver.ParmCfg(device.get(), 0, 1), 0);
    Bytes expected(128);
    std::fill_n(expected.begin(), 10, uint8_t{0x55});
    expected[12] = 1;
    EXPECT_EQ(Written(), expected);
}

TEST_F(LinDriverTest, AnOperationIsHandedOverAsItStands) {
    lin_operation op{};
    op.ot = SEND_WAKEUP;
    op.data.wake_up.channel_status = 1;
    op.data.wake_up.repeat_times = 3;
    op.data.wake_up.h_time_length = 0x11223344;
    op.data.wake_up.l_time_length = 0x55667788;
    EXPECT_EQ(driver.OperationCfg(device.get(), &op), 0);
    Bytes expected{4, 0, 0,    0,    0,    0,    0,    0,    1,    0,
                   3, 0, 0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55};
    expected.resize(128);
    EXPECT_EQ(Written(), expected);
}

TEST_F(LinDriverTest, ADisturbanceByteForByte) {
    lin_operation op{};
    op.ot = CONFIG_DISTURB;
    op.data.lin_dis = {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0x0B0A};
    EXPECT_EQ(driver.OperationCfg(device.get(), &op), 0);
    Bytes expected{3, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0x0A, 0x0B};
    expected.resize(128);
    EXPECT_EQ(Written(), expected);
}

TEST_F(LinDriverTest, ADeviceThatCannotBeReadFailsWithoutAWrite) {
    const UniqueFd writeOnly(open("/dev/null", O_WRONLY | O_CLOEXEC));
    const lin_operation op = Config(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(driver.ChannelCfg(writeOnly.get(), &op), -1);
    EXPECT_EQ(driver.ParmCfg(writeOnly.get(), 0, 1), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "read: Bad file descriptor\nread: Bad file descriptor\n");
}

TEST_F(LinDriverTest, ARefusedWriteFails) {
    const UniqueFd full(open("/dev/full", O_RDWR | O_CLOEXEC));
    const lin_operation op = Config(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(driver.ChannelCfg(full.get(), &op), -1);
    EXPECT_EQ(driver.ParmCfg(full.get(), 2, 1), -1);
    EXPECT_EQ(driver.OperationCfg(full.get(), &op), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "write: No space left on device\nwrite: No space left on device\n"
              "write: No space left on device\n");
}

TEST_F(LinDriverTest, ANetDeviceThatIsNotThereIsTold) {
    LinDriver none("LIN7");
    testing::internal::CaptureStderr(); // libsocketcan has its own words
    testing::internal::CaptureStdout();
    EXPECT_EQ(none.Open(), -1);
    EXPECT_EQ(none.Close(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "lin can_do_start communication fail\n"
                                                      "lin can_do_stop communication fail\n");
    testing::internal::GetCapturedStderr();
}

} // namespace
