#include "modules/IOADCService.h"

#include "base/ZephEventLoop.h"
#include "support/ServiceTest.h"
#include "utils/TempDir.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Writes = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr uint32_t kEnable = 0, kTrigger = 4, kLevel = 8, kOutput = 12, kUpload = 16;

// Trigger, inputs, outputs, reserved, both converters, device time: the driver's record.
const Bytes kSample{0x04, 0x05, 0x02, 0xEE, 0x34, 0x12, 0x78, 0x56,
                    0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01};
const Bytes kUploaded{0,    19,   0, 0, 0,    20,   4,    0x08, 0x07, 0x06, 0x05,
                      0x04, 0x03, 2, 1, 0x05, 0x02, 0x04, 0,    0,    0x34, 0x12,
                      0x78, 0x56, 0, 0, 0,    0,    0,    0,    0,    0};

class IOADCServiceTest : public ServiceTest {
  protected:
    IOADCServiceTest() { regs.writes.clear(); }

    Bytes Ask(const Bytes& request) { return ServiceTest::Ask(*service, request); }

    static void ExpectPositive(const Bytes& answer, uint8_t sid) { ExpectTime(answer, 20, sid); }
    static void ExpectNegative(const Bytes& answer, uint8_t code, uint8_t sid) {
        ExpectRefusal(answer, code, 20, sid);
    }

    ZephEventLoop loop;
    MemoryRegAccess& regs = board.Registers(0x88000000);
    std::unique_ptr<IOADCService> service = std::make_unique<IOADCService>(&loop, -1);
};

TEST_F(IOADCServiceTest, OpenSwitchesTheUploadOnWithPeriod1000AndOff) {
    ExpectPositive(Ask({20, 1, 1}), 1);
    EXPECT_EQ(regs.writes, (Writes{{kUpload, 0x800003E8}}));
    ExpectPositive(Ask({20, 1, 0}), 1);
    EXPECT_EQ(regs.Word(kUpload), 0U);
}

TEST_F(IOADCServiceTest, AnOpenStateAboveOneIsRefusedAndChangesNothing) {
    ExpectNegative(Ask({20, 1, 2}), 11, 1);
    ExpectNegative(Ask({20, 1, 255}), 11, 1);
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(IOADCServiceTest, AnUnknownServiceIsRefusedWithItsNumberAndHandle) {
    for (const uint8_t sid : Bytes{0, 4, 5, 6, 8, 99}) {
        ExpectNegative(Ask({20, sid, 1}), 14, sid);
    }
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(IOADCServiceTest, AnOutputIsEnabledThenItsLevelFieldIsSetThenItsBit) {
    ExpectPositive(Ask({20, 2, 1, 1, 1}), 2);
    EXPECT_EQ(regs.writes, (Writes{{kEnable, 1}, {kLevel, 3}, {kOutput, 1}}));
    regs.writes.clear();
    ExpectPositive(Ask({20, 2, 1, 2, 1}), 2);
    EXPECT_EQ(regs.writes, (Writes{{kEnable, 3}, {kLevel, 0xF}, {kOutput, 3}}));
    regs.writes.clear();
    ExpectPositive(Ask({20, 2, 1, 1, 0}), 2); // stays enabled, and the other keeps its level
    EXPECT_EQ(regs.writes, (Writes{{kEnable, 3}, {kLevel, 0xC}, {kOutput, 2}}));
}

TEST_F(IOADCServiceTest, BothOutputsGoInOneRequest) {
    ExpectPositive(Ask({20, 2, 2, 2, 1, 1, 0}), 2);
    EXPECT_EQ(regs.Word(kEnable), 3U);
    EXPECT_EQ(regs.Word(kLevel), 0xCU);
    EXPECT_EQ(regs.Word(kOutput), 2U);
}

TEST_F(IOADCServiceTest, NoOutputsArePositiveAndTouchNoRegister) {
    ExpectPositive(Ask({20, 2, 0}), 2);
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(IOADCServiceTest, ThreeOutputsAreRefusedWhole) {
    ExpectNegative(Ask({20, 2, 3, 1, 1, 2, 1, 1, 0}), 11, 2);
    ExpectNegative(Ask({20, 2, 255, 1, 1}), 11, 2);
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(IOADCServiceTest, AnOutputThatIsNotThereIsRefused) {
    ExpectNegative(Ask({20, 2, 1, 3, 1}), 11, 2);
    ExpectNegative(Ask({20, 2, 1, 0, 1}), 11, 2);
    ExpectNegative(Ask({20, 2, 1, 255, 1}), 11, 2);
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(IOADCServiceTest, ALevelAboveOneIsRefused) {
    ExpectNegative(Ask({20, 2, 1, 1, 2}), 11, 2);
    EXPECT_TRUE(regs.writes.empty());
}

TEST_F(IOADCServiceTest, AWrongSecondOutputLeavesTheFirstDone) {
    ExpectNegative(Ask({20, 2, 2, 1, 1, 3, 1}), 11, 2);
    EXPECT_EQ(regs.writes, (Writes{{kEnable, 1}, {kLevel, 3}, {kOutput, 1}}));
}

TEST_F(IOADCServiceTest, ThePeriodLeavesTheSwitchAsItIs) {
    regs.SetWord(kUpload, 0xFFFFFFFF);
    ExpectPositive(Ask({20, 3, 0x34, 0x12}), 3);
    EXPECT_EQ(regs.Word(kUpload), 0x80001234);
    regs.SetWord(kUpload, 0x7FFFFFFF);
    ExpectPositive(Ask({20, 3, 0xFF, 0xFF}), 3);
    EXPECT_EQ(regs.Word(kUpload), 0xFFFFU);
}

TEST_F(IOADCServiceTest, TheTriggerGoesIntoAllFourFields) {
    regs.SetWord(kTrigger, 0xABCD5555);
    ExpectPositive(Ask({20, 7, 1}), 7);
    EXPECT_EQ(regs.Word(kTrigger), 0xABCD3333);
    ExpectPositive(Ask({20, 7, 0}), 7);
    EXPECT_EQ(regs.Word(kTrigger), 0xABCD0000);
    EXPECT_EQ(regs.writes.size(), 8U); // each field by itself
}

TEST_F(IOADCServiceTest, ATriggerAboveOneIsRefused) {
    ExpectNegative(Ask({20, 7, 2}), 11, 7);
    EXPECT_TRUE(regs.writes.empty());
}

// Behind a short request stands its handle, 44 33 22 11, and behind that its tail.
TEST_F(IOADCServiceTest, TheLengthIsNotTestedAndMissingBytesComeFromTheBuffer) {
    ExpectNegative(Ask({20, 1}), 11, 1);
    ExpectNegative(Ask({20, 7}), 11, 7);
    ExpectPositive(Ask({20, 3}), 3);
    EXPECT_EQ(regs.Word(kUpload), 0x3344U);
    ExpectPositive(Ask({20, 3, 0x01}), 3);
    EXPECT_EQ(regs.Word(kUpload), 0x4401U);
    ExpectNegative(Ask({20, 2, 2, 1, 1}), 11, 2); // output 0x44
    EXPECT_EQ(regs.Word(kOutput), 1U);
}

TEST_F(IOADCServiceTest, BytesBehindTheRequestAreIgnored) {
    ExpectPositive(Ask({20, 1, 1, 9, 9, 9}), 1);
    ExpectPositive(Ask({20, 2, 0, 7, 7, 7, 7}), 2);
    EXPECT_EQ(regs.writes, (Writes{{kUpload, 0x800003E8}}));
}

TEST_F(IOADCServiceTest, RegistersThatCannotBeWrittenAreAnsweredPositively) {
    regs.failWrites = true;
    ExpectPositive(Ask({20, 1, 1}), 1);
    ExpectPositive(Ask({20, 2, 1, 1, 1}), 2);
}

TEST_F(IOADCServiceTest, EnablePeriodSetsTheSwitchThenThePeriod) {
    service->IoAdc_EnablePeriod(1, 500);
    EXPECT_EQ(regs.Word(kUpload), 0x800001F4);
    service->IoAdc_EnablePeriod(7, 0);
    EXPECT_EQ(regs.Word(kUpload), 0x80000000);
    service->IoAdc_EnablePeriod(0, 500);
    EXPECT_EQ(regs.Word(kUpload), 500U);
    service->IoAdc_EnablePeriod(0, 0x1'8000'0001); // bit 31 is the switch's, the rest is cut
    EXPECT_EQ(regs.Word(kUpload), 0x80000001);
}

TEST_F(IOADCServiceTest, ADeviceThatIsNotThereIsToldAndLeavesTheRequestsWorking) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(service->initDevice("/dev/null/dio"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to open DIO device: Not a directory\n");
    ExpectPositive(Ask({20, 1, 1}), 1);
}

TEST_F(IOADCServiceTest, ACleanupSwitchesTheBlockOffInItsOrder) {
    for (const uint32_t offset : {kEnable, kTrigger, kLevel, kOutput, kUpload}) {
        regs.SetWord(offset, 0xFFFFFFFF);
    }
    EXPECT_FALSE(service->IoAdcCleanup());
    EXPECT_EQ(regs.writes,
              (Writes{{kEnable, 0}, {kUpload, 0}, {kTrigger, 0}, {kLevel, 0}, {kOutput, 0}}));
}

TEST_F(IOADCServiceTest, TheEndOfAnObjectIsToldAndCleansUp) {
    regs.SetWord(kOutput, 3);
    testing::internal::CaptureStdout();
    service.reset();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "~IOADCService!\n");
    EXPECT_EQ(regs.Word(kOutput), 0U);
}

TEST_F(IOADCServiceTest, ThereIsOneInstanceUntilACleanupAndAnotherBehindIt) {
    IOADCService* const first = IOADCService::GetInstance(&loop, -1);
    EXPECT_EQ(IOADCService::GetInstance(nullptr, -1), first);
    first->IoAdcCleanup();
    IOADCService* const second = IOADCService::GetInstance(&loop, -1);
    EXPECT_NE(second, first);
    EXPECT_EQ(IOADCService::GetInstance(&loop, -1), second);
    // The old one is still whole.
    ExpectPositive(ServiceTest::Ask(*first, {20, 1, 1}), 1);
    EXPECT_EQ(regs.Word(kUpload), 0x800003E8);
    second->IoAdcCleanup();
}

// A service on a device that hands over what the test writes, one stream of bytes.
class IOADCSampleTest : public IOADCServiceTest {
  protected:
    IOADCSampleTest() {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        EXPECT_TRUE(service->initDevice(path));
        driver.reset(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    }

    void Write(const Bytes& bytes) {
        EXPECT_EQ(write(driver.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Reads once; what that told on standard error.
    std::string ReadDevice() {
        testing::internal::CaptureStderr();
        service->handleInterrupt();
        return testing::internal::GetCapturedStderr();
    }

    void RunLoop(double seconds) {
        loop.runAfter(seconds, [this] { loop.quit(); });
        loop.loop();
    }

    TempDir dir;
    const std::string path = dir / "dio";
    UniqueFd driver;
};

TEST_F(IOADCSampleTest, ASampleIsUploadedByteForByte) {
    Write(kSample);
    EXPECT_EQ(ReadDevice(), "");
    EXPECT_EQ(Answer(), kUploaded);
}

TEST_F(IOADCSampleTest, AnUploadLeavesTheAnswersAlone) {
    Write(kSample);
    service->handleInterrupt();
    Answers();
    const Bytes answer = Ask({20, 1, 1});
    ExpectPositive(answer, 1);
    EXPECT_EQ(Bytes(answer.begin() + 15, answer.end()), Bytes(9, 0));
}

TEST_F(IOADCSampleTest, OnlyAWholeSampleIsUploaded) {
    for (size_t length = 1; length < kSample.size(); ++length) {
        Write(Bytes(length, 0xFF));
        EXPECT_EQ(ReadDevice().find("Failed to read interrupt info: "), 0U) << length;
        EXPECT_TRUE(Answers().empty()) << length;
    }
    Write(kSample); // nothing of the short ones is left
    service->handleInterrupt();
    EXPECT_EQ(Answer(), kUploaded);
}

TEST_F(IOADCSampleTest, ADeviceWithNothingToReadIsToldAndUploadsNothing) {
    EXPECT_EQ(ReadDevice(), "Failed to read interrupt info: Resource temporarily unavailable\n");
    EXPECT_TRUE(Answers().empty());
}

TEST_F(IOADCSampleTest, OneReadTakesOneSample) {
    Bytes two = kSample;
    two.insert(two.end(), kSample.begin(), kSample.end());
    Write(two);
    service->handleInterrupt();
    EXPECT_EQ(Answer(), kUploaded);
    service->handleInterrupt();
    EXPECT_EQ(Answer(), kUploaded);
}

TEST_F(IOADCSampleTest, TheLoopUploadsEverySampleThatWaits) {
    for (int i = 0; i < 3; ++i) {
        Write(kSample);
    }
    RunLoop(0.05);
    EXPECT_EQ(Answers(), std::vector<Bytes>(3, kUploaded));
}

TEST_F(IOADCSampleTest, BehindAShortSampleTheDeviceIsReadAgain) {
    Write({1, 2, 3});
    loop.runAfter(0.05, [this] { Write(kSample); });
    testing::internal::CaptureStderr();
    RunLoop(0.3);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(Answers(), std::vector<Bytes>{kUploaded});
}

TEST_F(IOADCSampleTest, ADeviceThatStaysReadableAndGivesNothingRests) {
    // A terminal whose other end has gone: always readable, and never a byte.
    UniqueFd other(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(other);
    ASSERT_EQ(grantpt(other.get()), 0);
    ASSERT_EQ(unlockpt(other.get()), 0);
    ASSERT_TRUE(service->initDevice(ptsname(other.get())));
    other.reset();
    testing::internal::CaptureStderr();
    RunLoop(0.3);
    const std::string told = testing::internal::GetCapturedStderr();
    const auto reads = std::count(told.begin(), told.end(), '\n');
    EXPECT_GE(reads, 2); // it is not given up
    EXPECT_LE(reads, 6); // at 0, 10, 30, 70, 150 and 310 ms, were nothing late
}

TEST_F(IOADCSampleTest, ACleanupLetsGoOfTheDevice) {
    service->IoAdcCleanup();
    EXPECT_EQ(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1);
    EXPECT_EQ(errno, ENXIO); // nobody reads
    // Another file may get the number of the descriptor: the loop must not take it for the device.
    int pipes[2];
    ASSERT_EQ(pipe2(pipes, O_CLOEXEC | O_NONBLOCK), 0);
    const UniqueFd out(pipes[0]), in(pipes[1]);
    EXPECT_EQ(write(in.get(), kSample.data(), kSample.size()), 16);
    RunLoop(0.05);
    EXPECT_TRUE(Answers().empty());
}

TEST_F(IOADCSampleTest, ACleanupEndsTheRestOfTheDevice) {
    Write({1});
    testing::internal::CaptureStderr();
    service->handleInterrupt(); // rests from here on
    testing::internal::GetCapturedStderr();
    service->IoAdcCleanup();
    RunLoop(0.05);
    EXPECT_TRUE(Answers().empty());
}

TEST_F(IOADCSampleTest, ASecondCleanupIsHarmless) {
    service->IoAdcCleanup();
    EXPECT_FALSE(service->IoAdcCleanup());
    EXPECT_EQ(regs.writes.size(), 10U);
}

} // namespace
