#pragma once

#include "doubles/CanSockets.h"
#include "doubles/TimerSettings.h"
#include "modules/VciCanReplayService.h"
#include "support/ServiceTest.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <thread>

#include <sys/eventfd.h>
#include <sys/timerfd.h>

// A frame of a batch as the host writes it.
struct HostFrame {
    uint32_t interval = 0; // microseconds
    uint32_t id = 0x123;
    uint8_t flags = 0;
    Bytes data = {};
    uint8_t channel = 0;
};

inline HostFrame After(uint32_t interval) {
    HostFrame frame;
    frame.interval = interval;
    return frame;
}

// `count` frames whose identifiers count up from `firstId`.
inline std::vector<HostFrame> Numbered(size_t count, uint32_t firstId, uint32_t interval = 0) {
    std::vector<HostFrame> frames(count);
    for (size_t i = 0; i < count; ++i) {
        frames[i].interval = interval;
        frames[i].id = firstId + static_cast<uint32_t>(i);
    }
    return frames;
}

// Sockets that look on as a frame is written, on the replay thread.
class WatchedSockets : public CanSockets {
  public:
    using CanSockets::CanSockets;
    int Write(void* frame, int type, int protocol, int extend) override {
        onWrite();
        return CanSockets::Write(frame, type, protocol, extend);
    }
    std::function<void()> onWrite;
};

// Holds up the replay thread as it writes. Open at first.
class WriteGate {
  public:
    // The replay thread's.
    void Pass() {
        const size_t number = ++begun_;
        while (number > allowed_) {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }

    // The test's. Close() only while no write is about to begin.
    void Close() { allowed_ = begun_.load(); }
    void LetOne() { ++allowed_; }
    void Open() { allowed_ = std::numeric_limits<size_t>::max(); }
    size_t Begun() const { return begun_; } // writes, the one that is held included
    bool Holds() const { return begun_ > allowed_; }

  private:
    std::atomic<size_t> begun_{0};
    std::atomic<size_t> allowed_{std::numeric_limits<size_t>::max()};
};

// The CAN replay with sockets that lead nowhere. What comes from the device is sorted: answers,
// which the main thread gives before a request returns, and what the replay thread sends.
class ReplayTest : public ServiceTest {
  protected:
    using Ids = std::vector<uint32_t>;
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::seconds kDeadline{20};
    static constexpr uint8_t kDownload = 1, kFinish = 3, kCancel = 4, kPause = 5, kContinue = 6;
    static constexpr uint8_t kErrorLength = 10, kOutOfRange = 11, kWrongSequence = 12,
                             kWrongSid = 14, kOpenFailed = 42;
    static constexpr uint32_t kSecond = 1000000;    // microseconds
    static constexpr uint32_t kLate = 60 * kSecond; // behind the end of a test
    static constexpr uint32_t kNever = 0xFFFFFFFF;
    static constexpr int64_t kClosingWait = 99980000; // as it is set, in nanoseconds
    static constexpr int64_t kNoEnd = 60000000000;    // in its place: behind the end of a test

    ReplayTest() {
        Drivers::CanManage::statusMask_ = 0x3F;
        Drivers::CanManage::ListenstatusMask_ = 0;
        service.emplace(nullptr);
        for (const auto& channel : channels) {
            channel->Open();
        }
    }
    ~ReplayTest() override {
        gate.Open();
        testing::internal::CaptureStdout(); // it says that it goes
        service.reset();
        testing::internal::GetCapturedStdout();
        // Other tests of this program use its sockets too.
        net::ZephCanComM::GetInstance().ReplaceChannel(0, CanSockets::OfProgram()[0]);
    }

    static Bytes Batch(const std::vector<HostFrame>& frames) {
        Bytes request{18, kDownload, static_cast<uint8_t>(frames.size()),
                      static_cast<uint8_t>(frames.size() >> 8)};
        for (const HostFrame& frame : frames) {
            request.push_back(frame.channel);
            for (const uint32_t word : {frame.interval, frame.id}) {
                for (int shift = 0; shift < 32; shift += 8) {
                    request.push_back(static_cast<uint8_t>(word >> shift));
                }
            }
            request.push_back(frame.flags);
            request.insert(request.end(), frame.data.begin(), frame.data.end());
        }
        return request;
    }

    void Send(const Bytes& request) { ServiceTest::Send(*service, request); }
    void Download(const std::vector<HostFrame>& frames) { Send(Batch(frames)); }

    // The answer to a request; empty, and a failure, when there is not just one.
    Bytes Ask(const Bytes& request) {
        Listen();
        replies.clear();
        Send(request);
        return Reply();
    }
    Bytes Reply() {
        Listen();
        EXPECT_EQ(replies.size(), 1U);
        return replies.size() == 1 ? std::exchange(replies, {}).front() : Bytes{};
    }

    void Command(uint8_t sid) { ExpectShort(Ask({18, sid}), 18, sid); }

    // A download that is taken: nothing but signals answers it.
    void Take(const std::vector<HostFrame>& frames) {
        Listen();
        replies.clear();
        Download(frames);
        Listen();
        EXPECT_TRUE(replies.empty());
    }

    void ExpectRefused(const Bytes& request, uint8_t code) {
        ExpectRefusal(Ask(request), code, request.at(0), request.at(1));
    }

    // From now on the sockets of channel 0 call `onWrite`.
    void Watch(std::function<void()> onWrite) {
        const auto watched = std::make_shared<WatchedSockets>(0);
        watched->Open();
        watched->onWrite = std::move(onWrite);
        net::ZephCanComM::GetInstance().ReplaceChannel(0, watched);
        channels[0] = watched;
    }

    // From now on each write to channel 0 is held up until `gate` lets it go.
    void HoldWrites() {
        if (gate.Begun() == 0) {
            Watch([this] { gate.Pass(); });
        }
        gate.Close();
    }

    // Takes in what the device has sent so far.
    void Listen() {
        for (Bytes& message : Answers()) {
            if (message == kReady) {
                ++signals;
            } else if (message == kEnd) {
                ++ends;
            } else {
                replies.push_back(std::move(message));
            }
        }
        for (Bytes& frame : channels[0]->Frames()) {
            sent.push_back(frame.at(0) | uint32_t{frame.at(1)} << 8);
            sentFrames.push_back(std::move(frame));
        }
    }

    // Listens until `done`; a failure when that does not come.
    void Await(const std::function<bool()>& done, const char* what) {
        const auto deadline = Clock::now() + kDeadline;
        for (Listen(); !done(); Listen()) {
            if (Clock::now() > deadline) {
                FAIL() << "no " << what;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    void AwaitSent(size_t count) {
        Await([&] { return sent.size() >= count; }, "frames");
    }
    void AwaitHeld() {
        Await([&] { return gate.Holds(); }, "write");
    }

    // `frames` with the first in hand: its write is held up, and the timer of the second runs. What
    // is asked next reaches the replay there, however slow this machine is.
    void HoldTheFirst(const std::vector<HostFrame>& frames) {
        HoldWrites();
        Take(frames);
        AwaitHeld();
    }
    void AwaitEnd(int count = 1) {
        Await([&] { return ends >= count; }, "end message");
    }
    void AwaitReply() {
        Await([&] { return !replies.empty(); }, "reply");
    }
    // A moment in which something would happen if it were to happen.
    void LetPass(int milliseconds) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        Listen();
    }

    // The identifiers from `first`, one by one.
    static Ids Count(size_t count, uint32_t first) {
        Ids ids(count);
        for (size_t i = 0; i < count; ++i) {
            ids[i] = first + static_cast<uint32_t>(i);
        }
        return ids;
    }

    // A replay that sends at once, to show that one is possible now.
    void ExpectAReplayWorks() {
        sent.clear();
        Take(Numbered(3, 0x7A0));
        AwaitSent(3);
        EXPECT_EQ(sent, Count(3, 0x7A0));
    }

    // Lets the timer expire now, whatever it is set to.
    void Expire() {
        const auto timers = Opened("timerfd");
        ASSERT_EQ(timers.size(), 1U);
        const itimerspec now{{0, 0}, {0, 1}};
        ASSERT_EQ(timerfd_settime(timers[0], 0, &now, nullptr), 0);
    }

    // The same; and the replay thread, which that does not end, is done with it and waits again.
    void ExpireAndAwait() {
        ASSERT_NO_FATAL_FAILURE(Expire());
        const auto timers = Opened("timerfd");
        const auto wakeUps = Opened("eventfd");
        ASSERT_EQ(wakeUps.size(), 1U);
        Await([&] { return Shows(timers[0], {"ticks:0", "it_value:(0,0)"}); }, "expiry");
        eventfd_write(wakeUps[0], 1); // which it takes only behind the expiry
        Await([&] { return Shows(wakeUps[0], {"eventfd-count:0"}); }, "wake-up");
    }

    // The replay has begun its closing wait.
    void AwaitClosingWait(const TimerSettings& settings) {
        Await([&] { return settings.Count() > 0 && settings.Taken().back() == kClosingWait; },
              "closing wait");
    }

    // Descriptors of the replay's kinds that are open now and were not when the test began.
    std::vector<int> Opened(const std::string& kind) const {
        std::vector<int> opened;
        for (const int fd : Descriptors(kind)) {
            if (std::find(before_.begin(), before_.end(), fd) == before_.end()) {
                opened.push_back(fd);
            }
        }
        return opened;
    }
    size_t OpenedInAll() const {
        return Opened("eventpoll").size() + Opened("timerfd").size() + Opened("eventfd").size();
    }

    static inline const Bytes kReady{0, 2, 0, 0, 0, 18, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    static inline const Bytes kEnd{0, 3, 0, 0, 0, 18, 128, 3, 0, 0, 0, 0, 0, 0, 0, 0};

    std::array<std::shared_ptr<CanSockets>, 6> channels = CanSockets::OfProgram();
    WriteGate gate;
    std::vector<Bytes> replies;
    int signals = 0; // ready signals
    int ends = 0;
    std::vector<Bytes> sentFrames; // on channel 0
    Ids sent;                      // 16 bits of their identifiers
    std::optional<VciCanReplayService> service;

  private:
    static std::vector<int> Descriptors(const std::string& kind) {
        std::vector<int> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
            if (target == "anon_inode:[" + kind + "]") {
                found.push_back(std::stoi(entry.path().filename().string()));
            }
        }
        return found;
    }

    // True when what the kernel shows of a descriptor has these lines, blanks left aside.
    static bool Shows(int fd, const std::vector<std::string>& lines) {
        std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd));
        size_t found = 0;
        for (std::string line; std::getline(info, line);) {
            std::erase_if(line, [](char c) { return c == ' ' || c == '\t'; });
            found += static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
        }
        return found == lines.size();
    }

    static std::vector<int> AllDescriptors() {
        std::vector<int> all;
        for (const char* kind : {"eventpoll", "timerfd", "eventfd"}) {
            const auto found = Descriptors(kind);
            all.insert(all.end(), found.begin(), found.end());
        }
        return all;
    }

    const std::vector<int> before_ = AllDescriptors();
};
