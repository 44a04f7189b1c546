#include "modules/DevSyncService.h"

#include "base/ZephEventLoop.h"
#include "support/ServiceTest.h"

#include <memory>

namespace {

using Writes = std::vector<std::pair<uint32_t, int>>;

constexpr uint32_t kGreen = 28;
constexpr uint32_t kRed = 36;

class DevSyncServiceTest : public ServiceTest {
  protected:
    DevSyncServiceTest() {
        service.Init();
        Forget();
    }

    void Forget() {
        gpio.writes.clear();
        regs.writes.clear();
    }

    Bytes Ask(const Bytes& request) { return ServiceTest::Ask(service, request); }

    static void ExpectPositive(const Bytes& answer, uint8_t sid) { ExpectTime(answer, 16, sid); }
    static void ExpectNegative(const Bytes& answer, uint8_t code, uint8_t sid) {
        ExpectRefusal(answer, code, 16, sid);
    }

    ZephEventLoop loop;
    DevSyncService service{&loop};
    MemoryGpio& gpio = board.Gpio("gpiochip1");
    MemoryRegAccess& regs = board.Registers(0x82000000);
};

TEST_F(DevSyncServiceTest, ARequestIsAnsweredWithTheTime) {
    ExpectPositive(Ask({16, 1}), 1);
}

TEST_F(DevSyncServiceTest, ARequestOfAnyOtherLengthIsRefused) {
    ExpectNegative(Ask({16, 1, 0}), 10, 1);
}

TEST_F(DevSyncServiceTest, AFollowUpOfTenBytesIsAnsweredWithTheTime) {
    ExpectPositive(Ask({16, 2, 1, 2, 3, 4, 5, 6, 7, 8}), 2);
}

TEST_F(DevSyncServiceTest, AFollowUpOfAnyOtherLengthIsRefused) {
    ExpectNegative(Ask({16, 2, 1, 2, 3, 4, 5, 6, 7}), 10, 2);
    ExpectNegative(Ask({16, 2, 1, 2, 3, 4, 5, 6, 7, 8, 9}), 10, 2);
}

TEST_F(DevSyncServiceTest, AnUnknownServiceIsRefusedWithItsNumberAndHandle) {
    ExpectNegative(Ask({16, 99}), 14, 99);
    ExpectNegative(Ask({16, 0}), 14, 0);
    ExpectNegative(Ask({16, 5}), 14, 5);
}

TEST_F(DevSyncServiceTest, TheNodeModeIsWrittenInverted) {
    ExpectPositive(Ask({16, 3, 0}), 3);
    EXPECT_EQ(regs.Word(8), 1U);
    ExpectPositive(Ask({16, 3, 1}), 3);
    EXPECT_EQ(regs.Word(8), 0U);
}

TEST_F(DevSyncServiceTest, ANodeModeAboveOneIsRefusedAndSetAllTheSame) {
    usb.HostWrite(Frame({16, 3, 2}, 0x11223344));
    service.HandleReadEvent();
    const auto answers = Answers();
    ASSERT_EQ(answers.size(), 2U);
    ExpectNegative(answers[0], 11, 3);
    ExpectPositive(answers[1], 3);
    EXPECT_EQ(regs.Word(8), 1U); // the low bit of 2 is that of a slave
}

TEST_F(DevSyncServiceTest, ANodeModeThatCannotBeWrittenIsAnsweredPositively) {
    regs.failWrites = true;
    ExpectPositive(Ask({16, 3, 0}), 3);
}

TEST_F(DevSyncServiceTest, ANodeRequestOfAnyOtherLengthIsRefused) {
    ExpectNegative(Ask({16, 3}), 10, 3);
    ExpectNegative(Ask({16, 3, 1, 1}), 10, 3);
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(DevSyncServiceTest, SyncUpLightsGreenAndSyncDownPutsItOut) {
    ExpectPositive(Ask({16, 4, 1, 1}), 4);
    EXPECT_EQ(regs.Word(12), 1U);
    EXPECT_EQ(gpio.writes, (Writes{{kGreen, 0}, {kRed, 1}}));
    Forget();
    ExpectPositive(Ask({16, 4, 1, 0}), 4);
    EXPECT_EQ(regs.Word(12), 0U);
    EXPECT_EQ(gpio.writes, (Writes{{kRed, 1}, {kGreen, 1}}));
}

TEST_F(DevSyncServiceTest, AStartStopThatAppliesNothingIsPositiveAndChangesNothing) {
    ExpectPositive(Ask({16, 4, 0, 1}), 4);
    EXPECT_TRUE(regs.writes.empty());
    EXPECT_TRUE(gpio.writes.empty());
    ExpectPositive(Ask({16, 4, 1, 1}), 4); // up is still news
    EXPECT_EQ(regs.Word(12), 1U);
}

TEST_F(DevSyncServiceTest, AStartStopWithEitherByteAboveOneIsRefused) {
    ExpectNegative(Ask({16, 4, 2, 1}), 11, 4);
    ExpectNegative(Ask({16, 4, 1, 2}), 11, 4);
    ExpectNegative(Ask({16, 4, 0, 2}), 11, 4);
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(DevSyncServiceTest, AStartStopOfAnyOtherLengthIsRefused) {
    ExpectNegative(Ask({16, 4, 1}), 10, 4);
    ExpectNegative(Ask({16, 4, 1, 1, 1}), 10, 4);
}

TEST_F(DevSyncServiceTest, AStateThatCannotBeWrittenIsRefusedWithTheRedLamp) {
    regs.failWrites = true;
    ExpectNegative(Ask({16, 4, 1, 1}), 45, 4);
    EXPECT_EQ(gpio.writes, (Writes{{kGreen, 1}, {kRed, 0}}));
}

TEST_F(DevSyncServiceTest, ADropLightsRedAndIsUploaded) {
    Ask({16, 4, 1, 1});
    Forget();
    service.SyncUploadErrorCb();
    EXPECT_EQ(Answer(), (Bytes{0, 14, 0, 0, 0, 104, 1, 0x10, 0x27, 0, 0, 0, 0, 0,
                               0, 1,  4, 0, 1, 0,   0, 0,    0,    0, 0, 0, 0, 0}));
    EXPECT_EQ(gpio.writes, (Writes{{kGreen, 1}, {kRed, 0}}));
    EXPECT_TRUE(regs.writes.empty()); // the lamp alone
}

// Runs the loop until the timer behind a drop has fired, and longer.
class DevSyncTimerTest : public DevSyncServiceTest {
  protected:
    void RunUntilTimeout() {
        testing::internal::CaptureStdout();
        service.SyncUploadErrorCb();
        Answers();
        loop.runAfter(0.8, [this] { lampsAfter800ms = gpio.writes.size(); });
        // The timer is the only thing that prints in this loop. It is due after a second, once.
        loop.runAfter(2.3, [this] { loop.quit(); });
        loop.loop();
        const std::string printed = testing::internal::GetCapturedStdout();
        const std::string text = "DevSyncService::SyncUploadErrorCb timeout\n";
        EXPECT_NE(printed.find(text), std::string::npos);
        EXPECT_EQ(printed.find(text), printed.rfind(text));
    }

    size_t lampsAfter800ms = 0;
};

TEST_F(DevSyncTimerTest, ASecondAfterADropTheStateGoesDownAndTheLampOut) {
    Ask({16, 4, 1, 1});
    Forget();
    RunUntilTimeout();
    EXPECT_EQ(lampsAfter800ms, 2U);
    EXPECT_EQ(regs.Word(12), 0U);
    EXPECT_EQ(gpio.writes, (Writes{{kGreen, 1}, {kRed, 0}, {kRed, 1}, {kGreen, 1}}));
}

TEST_F(DevSyncTimerTest, WithSyncDownAlreadyTheRedLampStaysOn) {
    RunUntilTimeout();
    EXPECT_EQ(lampsAfter800ms, 2U);
    EXPECT_TRUE(regs.writes.empty());
    EXPECT_EQ(gpio.writes, (Writes{{kGreen, 1}, {kRed, 0}}));
}

} // namespace
