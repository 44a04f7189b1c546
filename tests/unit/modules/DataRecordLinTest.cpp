// Group 9 with LIN channels: the switch, the records and the start of a schedule behind a wake-up.

#include "base/ZephEventLoop.h"
#include "modules/CanErrorFiles.h"
#include "modules/DataRecordService.h"
#include "modules/LinFixture.h"
#include "modules/LinPacket.h"
#include "net/NetNamespace.h"

#include <csignal>
#include <cstring>

#include <net/if.h>

namespace {

using Drivers::LinManage;

constexpr uint8_t kOutOfRange = 11;
constexpr uint8_t kWrongSequence = 12;
constexpr uint8_t kUpdateConfig = 54;

// The only interface is called LIN0, or as a test has it; the device of channel 0 is open.
class DataRecordLinTest : public LinTest {
  protected:
    explicit DataRecordLinTest(const std::string& name = "LIN0") {
        EXPECT_TRUE(alone.Entered()) << "this test needs the right to make a network namespace";
        EXPECT_TRUE(alone.RenameLoopback(name));
        EXPECT_TRUE(alone.Raise(name));
        index = if_nametoindex(name.c_str());
        CloseDevice(1);
        LinManage::mappedMemory[0] = records.data();
        LinManage::mappedMemory[1] = records.data();
        service = std::make_unique<DataRecordService>(&loop, files.Prefix());
        testing::internal::CaptureStdout();
        service->Init();
        testing::internal::GetCapturedStdout();
    }
    ~DataRecordLinTest() override {
        service.reset();
        LinManage::mappedMemory[0] = nullptr;
        LinManage::mappedMemory[1] = nullptr;
        signal(SIGINT, SIG_DFL);
    }

    Bytes Ask(const Bytes& request) { return ServiceTest::Ask(*service, request); }

    std::string SwitchLine(int code) const {
        return "if index is " + std::to_string(index) + ",lin channel is " + std::to_string(code) +
               ", direction is 1\n";
    }

    std::vector<Bytes> Callback(const CapturedPacket& packet) { return Callback(packet, index); }
    std::vector<Bytes> Callback(const CapturedPacket& packet, unsigned int interface) {
        const pcap_pkthdr header = packet.Header();
        service->UsbUploadCallback(&header, packet.bytes.data(), static_cast<int>(interface));
        return Answers();
    }

    // A packet on the interface: names element 17 with direction 3. Nothing is told here whether
    // the capture takes it.
    void SendPacket(uint32_t linId = 1) {
        Receive(17, linId);
        const CapturedPacket packet = MakeLinPacket(17, 3);
        const Bytes behindTheHeader(packet.bytes.begin() + 20, packet.bytes.end());
        ASSERT_TRUE(alone.Send("LIN0", 0x0D, behindTheHeader));
    }

    // The records of that packet, which the loopback shows as it leaves and as it comes.
    void ExpectRecords() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(8);
        std::vector<Bytes> uploads;
        while (uploads.size() < 2 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            for (Bytes& upload : Answers()) {
                uploads.push_back(std::move(upload));
            }
        }
        ASSERT_EQ(uploads.size(), 2U);
        for (const Bytes& upload : uploads) {
            EXPECT_EQ(upload.size(), 116U);
            EXPECT_EQ(upload.at(6), 26);
            EXPECT_EQ(upload.at(7), 0);
            EXPECT_EQ(upload.at(28), 3);
        }
    }

    void ExpectNoRecord() {
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // gone by, whatever it takes
        EXPECT_TRUE(Answers().empty());
    }

    void Receive(size_t element, uint32_t linId) {
        const Bytes detil = MakeLinDetil(0, linId, 0);
        std::memcpy(&records.at(element), detil.data(), detil.size());
    }

    CanErrorFiles files;
    std::array<lin_rx_detil, 100> records{};
    NetNamespace alone;
    unsigned int index = 0;
    ZephEventLoop loop;
    std::unique_ptr<DataRecordService> service;
};

TEST_F(DataRecordLinTest, ASwitchReachesTheDriverAndIsAnsweredWithTheTime) {
    Bytes answer;
    EXPECT_EQ(Told([&] { answer = Ask({9, 12, 1, 0, 1}); }), SwitchLine(50));
    ExpectTime(answer, 9, 12);
    Bytes expected(128);
    expected[29] = 1; // open_rx
    EXPECT_EQ(Written(0), expected);
    Rewind(0);
    EXPECT_EQ(Told([&] { answer = Ask({9, 12, 1, 0, 0}); }), SwitchLine(50));
    ExpectTime(answer, 9, 12);
    EXPECT_EQ(Written(0), Bytes(128));
}

TEST_F(DataRecordLinTest, ASwitchOfAnyValueBut0IsOn) {
    ExpectTime(Ask({9, 12, 1, 0, 200}), 9, 12);
    EXPECT_EQ(Written(0)[29], 200); // for the driver as it came
    SendPacket();
    ExpectRecords();
}

TEST_F(DataRecordLinTest, NoEntryIsAnsweredStraightAway) {
    Bytes answer;
    EXPECT_EQ(Told([&] { answer = Ask({9, 12, 0}); }), "");
    ExpectTime(answer, 9, 12);
}

TEST_F(DataRecordLinTest, MoreThanOneEntryIsOutOfRange) {
    for (const uint8_t count : Bytes{2, 255}) {
        ExpectRefusal(Ask({9, 12, count, 0, 1, 1, 1}), kOutOfRange, 9, 12);
    }
    EXPECT_EQ(Written(0), Bytes(128));
}

TEST_F(DataRecordLinTest, ADeviceThatIsNotOpenIsAWrongSequenceWhateverTheSwitchIs) {
    for (const uint8_t channel : Bytes{1, 2, 31, 32, 50, 255}) {
        for (const uint8_t value : Bytes{0, 1, 2, 255}) {
            ExpectRefusal(Ask({9, 12, 1, channel, value}), kWrongSequence, 9, 12);
        }
    }
}

TEST_F(DataRecordLinTest, TheLengthIsNotLookedAt) {
    // The bytes behind it are those of the handle: channel 0x44.
    ExpectRefusal(Ask({9, 12, 1}), kWrongSequence, 9, 12);
    ExpectTime(Ask({9, 12, 1, 0, 1, 0, 0, 0, 0}), 9, 12);
}

TEST_F(DataRecordLinTest, AChannelWithoutItsInterfaceIsSwitchedInTheDriverAlone) {
    OpenDevice(1);
    Bytes answer;
    EXPECT_EQ(Told([&] {
                  answer = Ask({9, 12, 1, 1, 1});
              }),
              "if index is 0,lin channel is 51, direction is 1\n");
    ExpectTime(answer, 9, 12);
    EXPECT_EQ(Written(1)[29], 1);
}

TEST_F(DataRecordLinTest, ASwitchThatTheDriverRefusesIsRefusedAndYetMadeHere) {
    close(LinManage::chrDevFd[0].exchange(open("/dev/full", O_RDWR | O_CLOEXEC)));
    testing::internal::CaptureStderr();
    Bytes answer;
    EXPECT_EQ(Told([&] { answer = Ask({9, 12, 1, 0, 1}); }), SwitchLine(50));
    ExpectRefusal(answer, kUpdateConfig, 9, 12);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "write: No space left on device\n");
    SendPacket();
    ExpectRecords();
}

TEST_F(DataRecordLinTest, APacketOnTheInterfaceIsRecordedWhileItIsSwitchedOn) {
    SendPacket();
    ExpectNoRecord();
    ExpectTime(Ask({9, 12, 1, 0, 1}), 9, 12);
    SendPacket();
    ExpectRecords();
    ExpectTime(Ask({9, 12, 1, 0, 0}), 9, 12);
    SendPacket();
    ExpectNoRecord();
}

TEST_F(DataRecordLinTest, AFrameStartsNoTimer) {
    Receive(0, 1);
    EXPECT_EQ(Told([&] { EXPECT_EQ(Callback(MakeLinPacket(0)).size(), 1U); }), "");
}

class DataRecordLin1Test : public DataRecordLinTest {
  protected:
    DataRecordLin1Test() : DataRecordLinTest("LIN1") {}
};

TEST_F(DataRecordLin1Test, TheSecondChannelsRecordsAreOfChannel1) {
    Receive(0, 1);
    const auto answers = Callback(MakeLinPacket(0));
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0][7], 1);
    OpenDevice(1);
    Bytes answer;
    EXPECT_EQ(Told([&] { answer = Ask({9, 12, 1, 1, 1}); }), SwitchLine(51));
    ExpectTime(answer, 9, 12);
}

class DataRecordLinWakeupTest : public DataRecordLinTest {
  protected:
    using DataRecordLinTest::DataRecordLinTest;

    // The marker of a wake-up.
    static constexpr uint32_t kWakeup = 100;

    std::string Run(double seconds) { return LinTest::Run(loop, seconds); }

    // Runs until the timer has called, which is 800 ms behind the last Wake() and not before; what
    // is printed meanwhile.
    std::string RunUntilCalled() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        std::string told;
        while (told.find(called) == std::string::npos && std::chrono::steady_clock::now() < end) {
            told += Run(0.02);
        }
        EXPECT_GE(std::chrono::steady_clock::now() - woken, std::chrono::milliseconds(800));
        return told;
    }

    void Wake() { Wake(index); }
    void Wake(unsigned int interface) {
        Receive(5, kWakeup);
        woken = std::chrono::steady_clock::now();
        EXPECT_EQ(Told([&] {
                      const auto answers = Callback(MakeLinPacket(5), interface);
                      ASSERT_EQ(answers.size(), 1U);
                      EXPECT_EQ(answers[0].size(), 32U);
                  }),
                  "DataRecordService::StartTimer set timer800\n");
    }

    const std::string called = "DataRecordService::LinWakeupCb cb call\n";
    std::chrono::steady_clock::time_point woken;
};

TEST_F(DataRecordLinWakeupTest, ASleepingScheduleStarts800MillisecondsBehindAWakeup) {
    lin.schedules.setStatus(0, true);
    Download(0, {1});
    Wake();
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_EQ(RunUntilCalled(), called);
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
    EXPECT_FALSE(lin.schedules.getExecutorStatus(1));
    EXPECT_EQ(Run(0.9), ""); // once
}

TEST_F(DataRecordLinWakeupTest, OfTwoWakeupsTheSecondCounts) {
    lin.schedules.setStatus(0, true);
    Download(0, {1});
    Wake();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    Wake();
    EXPECT_EQ(RunUntilCalled(), called);
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
}

// Of the two channels' interfaces only one is here. The other's index is 0, as the last of those
// that are missing.
TEST_F(DataRecordLinWakeupTest, AWakeupOfTheOtherChannelTakesThePlaceOfTheFirstOnesStart) {
    OpenDevice(1);
    for (const int ch : {0, 1}) {
        lin.schedules.setStatus(ch, true);
        Download(ch, {1});
    }
    Wake();
    Wake(0);
    EXPECT_EQ(RunUntilCalled(), called);
    EXPECT_TRUE(lin.schedules.getExecutorStatus(1));
    EXPECT_EQ(Run(0.9), "");
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
}

TEST_F(DataRecordLinWakeupTest, AWakeupStartsNothingUnlessItsChannelIsRecorded) {
    lin.schedules.setStatus(0, true);
    Download(0, {1});
    SendPacket(kWakeup);
    EXPECT_EQ(Run(1.2), "");
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_TRUE(Answers().empty());
    ExpectTime(Ask({9, 12, 1, 0, 1}), 9, 12);
    woken = std::chrono::steady_clock::now();
    SendPacket(kWakeup);
    RunUntilCalled();
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
}

TEST_F(DataRecordLinWakeupTest, ARunningScheduleIsLeftAlone) {
    lin.schedules.setStatus(0, true);
    Download(0, {1});
    lin.schedules.startExecutor(0);
    Wake();
    EXPECT_EQ(Run(1.2), called); // without a start that fails
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
}

TEST_F(DataRecordLinWakeupTest, AResponderStartsNothing) {
    Download(0, {1});
    Wake();
    EXPECT_EQ(Run(1.2), called);
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
}

TEST_F(DataRecordLinWakeupTest, ACommanderWithoutATableSaysThatItCannotStart) {
    lin.schedules.setStatus(0, true);
    Wake();
    EXPECT_EQ(Run(1.2), called + "LinScheduleManager::startExecutor : start failed\n");
}

TEST_F(DataRecordLinWakeupTest, AWakeupAtTheLastMomentStartsTheTimeAnew) {
    lin.schedules.setStatus(0, true);
    Download(0, {1});
    Wake();
    // Both are ready in the same turn of the loop, and this one is called first.
    const WhenReady another(loop, [&] { Callback(MakeLinPacket(5)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(850)); // the first time is over
    woken = std::chrono::steady_clock::now();
    EXPECT_EQ(Run(0.02), "DataRecordService::StartTimer set timer800\n" + called);
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_EQ(RunUntilCalled(), called);
    EXPECT_TRUE(lin.schedules.getExecutorStatus(0));
}

class DataRecordLin1WakeupTest : public DataRecordLinWakeupTest {
  protected:
    DataRecordLin1WakeupTest() : DataRecordLinWakeupTest("LIN1") {}
};

TEST_F(DataRecordLin1WakeupTest, AWakeupOnTheSecondChannelStartsItsScheduleAlone) {
    OpenDevice(1);
    for (const int ch : {0, 1}) {
        lin.schedules.setStatus(ch, true);
        Download(ch, {static_cast<uint8_t>(1 + ch)});
    }
    Wake();
    EXPECT_EQ(Run(1.2), called);
    EXPECT_TRUE(lin.schedules.getExecutorStatus(1));
    EXPECT_FALSE(lin.schedules.getExecutorStatus(0));
    EXPECT_EQ(Pids(WaitForFrames(1, 1))[0], 2);
}

} // namespace
