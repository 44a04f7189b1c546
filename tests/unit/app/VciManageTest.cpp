#include "app/VciManage.h"

#include "base/SignalRelay.h"
#include "support/BoardTest.h"
#include "utils/Logger.h"
#include "versions/VersionManager.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr auto kDeadline = 20s;

class FifoUsbConfig : public UsbConfig {
  public:
    explicit FifoUsbConfig(std::string path) : path_(std::move(path)) {}
    std::string GetUsbPath() const override { return path_; }

  private:
    std::string path_;
};

// The application on a board in memory. A FIFO stands in for the device that reports itself
// readable; the rings are those of the memory link.
class VciManageTest : public BoardTest {
  protected:
    VciManageTest() {
        EXPECT_NE(mkdtemp(directory_), nullptr);
        path_ = std::string(directory_) + "/usb";
        VersionManager::GetInstance().ReplaceBoard(
            {std::make_shared<FifoUsbConfig>(path_), nullptr, nullptr, nullptr});
        SignalRelay::GetInstance().SetAction([this](int signal) {
            signals_.push_back(signal);
            if (signal == SIGTERM && manage_ != nullptr) {
                manage_.load()->Quit();
            }
            return signal == SIGTERM;
        });
        testing::internal::CaptureStdout();
    }

    ~VciManageTest() override {
        if (thread_.joinable()) { // a failed test has not ended it
            SignalRelay::GetInstance().Post(SIGTERM);
            thread_.join();
        }
        printed_ += testing::internal::GetCapturedStdout();
        if (HasFailure()) {
            std::cerr << printed_; // with what the test framework said
        }
        VersionManager::GetInstance().ReplaceBoard({shipped_, nullptr, nullptr, nullptr});
        SignalRelay::GetInstance().SetAction(nullptr);
        SignalRelay::GetInstance().Dispatch(); // none is left for the next test
        unlink(path_.c_str());
        rmdir(directory_);
    }

    void MakeDevice() { ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0); }

    // Makes the device readable for as long as the byte lies there.
    void Readable() {
        const int fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, "x", 1), 1);
        writer_ = fd; // kept open, as the bytes of a FIFO go with its last descriptor
    }

    // The whole life of the application, on a thread of its own.
    void Start() {
        thread_ = std::thread([this] {
            {
                VciManage manage;
                manage_ = &manage;
                built_.set_value();
                manage.Run();
                const std::lock_guard<std::mutex> lock(alive_);
                manage_ = nullptr;
            }
            ended_.set_value();
        });
    }

    bool Ended(std::chrono::seconds within = kDeadline) {
        return ended_.get_future().wait_for(within) == std::future_status::ready;
    }

    void Join() {
        thread_.join();
        if (writer_ >= 0) {
            close(writer_);
        }
        testing::internal::GetCapturedStdout().swap(printed_);
        testing::internal::CaptureStdout();
    }

    // What has come for the host when there are `count` messages, or the deadline has passed.
    std::vector<Bytes> AwaitAnswers(size_t count) {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        std::vector<Bytes> answers;
        while (answers.size() < count && std::chrono::steady_clock::now() < deadline) {
            for (auto& answer : Answers()) {
                answers.push_back(std::move(answer));
            }
            std::this_thread::sleep_for(1ms);
        }
        return answers;
    }

    static int Count(const std::string& text, const std::string& part) {
        int count = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
            ++count;
        }
        return count;
    }

    char directory_[32] = "/tmp/vci-manage-test.XXXXXX";
    std::string path_;
    std::shared_ptr<UsbConfig> shipped_ = VersionManager::GetInstance().GetUsbConfig();
    std::thread thread_;
    std::promise<void> built_, ended_;
    std::atomic<VciManage*> manage_{nullptr};
    std::mutex alive_; // held by a foreign caller, so that the application outlives the call
    std::vector<int> signals_;
    std::string printed_;
    int writer_ = -1;
};

TEST_F(VciManageTest, WaitsForTheDeviceAndFindsIt) {
    Start();
    std::this_thread::sleep_for(100ms); // it has looked once, and looks again after a second
    MakeDevice();
    ASSERT_EQ(built_.get_future().wait_for(kDeadline), std::future_status::ready);
    SignalRelay::GetInstance().Post(SIGTERM);
    ASSERT_TRUE(Ended());
    Join();
    EXPECT_GE(Count(printed_, "wait usb...\n"), 1);
    EXPECT_EQ(Count(printed_, "got usb!\n"), 1);
    EXPECT_EQ(Count(printed_, "~VciManage\n"), 1);
    // The base loop and the three of the pool.
    EXPECT_EQ(Count(printed_, "[ZephA] ZephEventLoop::loop()"), 4);
}

TEST_F(VciManageTest, ASignalWhileWaitingForTheDeviceEndsIt) {
    Start();
    SignalRelay::GetInstance().Post(SIGTERM);
    ASSERT_TRUE(Ended());
    Join();
    EXPECT_EQ(Count(printed_, "got usb!\n"), 0);
    EXPECT_EQ(signals_, std::vector<int>{SIGTERM});
}

TEST_F(VciManageTest, ASignalBeforeTheLoopsRunEndsIt) {
    MakeDevice();
    SignalRelay::GetInstance().Post(SIGTERM);
    Start();
    ASSERT_TRUE(Ended());
    Join();
}

TEST_F(VciManageTest, ManySignalsEndItOnce) {
    MakeDevice();
    Start();
    built_.get_future().wait();
    for (int i = 0; i < 10000; ++i) {
        SignalRelay::GetInstance().Post(i % 2 == 0 ? SIGUSR2 : SIGTERM);
    }
    ASSERT_TRUE(Ended());
    Join();
    EXPECT_EQ(Count(printed_, "~VciManage\n"), 1);
    EXPECT_GE(std::count(signals_.begin(), signals_.end(), SIGTERM), 1);
}

TEST_F(VciManageTest, WhileAFrameIsIncompleteTheLoopRestsInsteadOfSpinning) {
    MakeDevice();
    Start();
    built_.get_future().wait();
    Bytes bytes = Frame({16, 1}); // a ring that began with the half frame would be left alone
    for (const uint8_t byte : Bytes{0, 10, 0, 0, 0, 16, 2, 0}) {
        bytes.push_back(byte);
    }
    usb.HostWrite(bytes);
    Readable(); // and stays so
    EXPECT_EQ(AwaitAnswers(2).size(), 2U);
    clockid_t clock = 0;
    ASSERT_EQ(pthread_getcpuclockid(thread_.native_handle(), &clock), 0);
    timespec before{}, after{};
    clock_gettime(clock, &before);
    std::this_thread::sleep_for(500ms);
    clock_gettime(clock, &after);
    const double busy = static_cast<double>(after.tv_sec - before.tv_sec) +
                        static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
    EXPECT_LT(busy, 0.2); // a spinning loop would take nearly all of the half second
    EXPECT_TRUE(Answers().empty());
    usb.HostWrite(Bytes(16));
    const auto answers = AwaitAnswers(1);
    ASSERT_FALSE(answers.empty());
    EXPECT_EQ(answers[0][5], 16);
    EXPECT_EQ(answers[0][6], 2);
    SignalRelay::GetInstance().Post(SIGTERM);
    ASSERT_TRUE(Ended());
    Join();
}

TEST_F(VciManageTest, IndicesThatAnEarlierDaemonSpoiltCostNoFrame) {
    MakeDevice();
    usb.Set(MemoryUsb::kReadOut, 0x80000000);
    Start();
    built_.get_future().wait();
    Readable();
    std::this_thread::sleep_for(50ms); // the loop finds the ring as it was left
    usb.HostWrite(Frame({16, 1}));
    // The FIFO calls an empty ring readable: such events are refused for their length, and nothing
    // of what the ring held is taken for a frame.
    Bytes answer;
    do {
        const auto answers = AwaitAnswers(1);
        ASSERT_FALSE(answers.empty());
        answer = answers.front();
        ASSERT_TRUE(answer[5] == 16 || answer[7] == 10);
    } while (answer[5] != 16);
    SignalRelay::GetInstance().Post(SIGTERM);
    ASSERT_TRUE(Ended());
    Join();
}

TEST_F(VciManageTest, AQuitFromAnyThreadAtAnyMomentEndsIt) {
    MakeDevice();
    Start();
    built_.get_future().wait();
    {
        const std::lock_guard<std::mutex> lock(alive_);
        manage_.load()->Quit(); // Run() may not even have begun
    }
    ASSERT_TRUE(Ended());
    Join();
}

TEST_F(VciManageTest, ServesTheHostFromTheRing) {
    MakeDevice();
    Start();
    built_.get_future().wait();
    usb.HostWrite(Frame({16, 1}));
    usb.HostWrite(Frame({16, 2}, 0x11223344));
    Readable();
    const auto answers = AwaitAnswers(2);
    SignalRelay::GetInstance().Post(SIGTERM);
    ASSERT_TRUE(Ended());
    Join();
    ASSERT_GE(answers.size(), 2U);
    EXPECT_EQ(answers[0][5], 16);
    EXPECT_EQ(answers[0][6], 1);
    EXPECT_EQ(answers[1][5], 104);
    EXPECT_EQ(answers[1][7], 10);
}

TEST_F(VciManageTest, LogsTheEventsThatNothingElseTreats) {
    MakeDevice();
    VciManage manage;
    static std::string lines; // the logger takes a plain function
    limlog::singleton()->setOutput([](const char* text, size_t length) {
        lines.append(text, length);
        return static_cast<ssize_t>(length);
    });
    manage.HandleUsbWriteEvent();
    manage.HandleUsbErrorEvent();
    manage.HandleUsbCloseEvent();
    EXPECT_EQ(Count(lines, " VciManage::HandleUsbWriteEvent()\n"), 1);
    EXPECT_EQ(Count(lines, " VciManage::HandleUsbErrorEvent()\n"), 1);
    EXPECT_EQ(Count(lines, " VciManage::HandleUsbCloseEvent()\n"), 1);
    EXPECT_EQ(lines.substr(0, 5), "INFO ");
}

} // namespace
