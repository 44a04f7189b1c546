#pragma once

#include "base/ZephChannel.h"
#include "base/ZephEventLoop.h"
#include "doubles/LinSocket.h"
#include "drivers/LinFiles.h"
#include "drivers/LinManage.h"
#include "modules/LinSchedule/LinScheduleManager.h"
#include "support/ServiceTest.h"
#include "utils/UniqueFd.h"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

// The LIN device of the whole program: files for the character devices, and sockets without a bus.
// Made by the first test that needs it.
struct LinDevice {
    static LinDevice& Instance() {
        static LinDevice device;
        return device;
    }

    LinFiles files;
    Drivers::LinManage& manage = Drivers::LinManage::GetInstance(files.Prefix());
    std::array<std::shared_ptr<LinSocket>, 2> sockets =
        LinSocket::Replace(ZephLinComM::GetInstance());
    LinScheduleManager& schedules = LinScheduleManager::GetInstance();
};

// Calls `work` once in the loop's next turn, ahead of what becomes ready after this was made.
class WhenReady {
  public:
    WhenReady(ZephEventLoop& loop, const std::function<void()>& work)
        : fd_(eventfd(1, EFD_CLOEXEC)), channel_(&loop, fd_.get()) {
        channel_.setReadCallback([this, work](ZephTimestamp) {
            channel_.disableAll();
            work();
        });
        channel_.enableReading();
    }
    WhenReady(const WhenReady&) = delete;
    WhenReady& operator=(const WhenReady&) = delete;
    ~WhenReady() { channel_.remove(); }

  private:
    UniqueFd fd_;
    ZephChannel channel_;
};

// A test with both LIN channels open, at no bit rate, in the role of responders, without tables and
// responses.
class LinTest : public ServiceTest {
  protected:
    LinTest() {
        auto& com = ZephLinComM::GetInstance();
        lin.files.Reset();
        for (uint8_t ch = 0; ch < 2; ++ch) {
            lin.schedules.stopExecutor(ch);
            lin.schedules.setStatus(ch, false);
            lin.schedules.clearTable(ch);
            lin.schedules.setNewTable(ch); // the one that a download left, and then it
            lin.schedules.clearTable(ch);
            lin.schedules.clearResMsg(ch);
            LinSocket& socket = *lin.sockets.at(ch);
            socket.failOpen = socket.failClose = socket.refuse = false;
            socket.beforeWrite = nullptr;
            OpenDevice(ch);
            if (com.GetComNetStatus(ch) == 0) {
                com.LinComMOpen(ch);
            } else {
                socket.Open(); // afresh
            }
            socket.closeModes.clear();
        }
        SetBaudrate(0, 0);
        SetBaudrate(1, 0);
    }

    ~LinTest() override {
        for (int ch = 0; ch < 2; ++ch) {
            lin.schedules.stopExecutor(ch);
            CloseDevice(ch);
        }
    }

    // Opens and closes a channel's device without its net device.
    void OpenDevice(int ch) const {
        const auto index = static_cast<size_t>(ch);
        Drivers::LinManage::chrDevFd[index] = open(lin.files.Path(ch).c_str(), O_RDWR | O_CLOEXEC);
        Drivers::LinManage::statusMask |= 1 << ch;
    }
    static void CloseDevice(int ch) {
        const auto index = static_cast<size_t>(ch);
        if ((Drivers::LinManage::statusMask.fetch_and(~(1 << ch)) >> ch & 1) != 0) {
            close(Drivers::LinManage::chrDevFd[index]);
        }
    }

    // As a configuration sets it. The character device then stands at its start again, empty.
    void SetBaudrate(int ch, uint32_t bitrate) const {
        lin_operation op{};
        op.data.config.bitrate = bitrate;
        EXPECT_EQ(lin.manage.ChannelCfg(ch, &op), 0);
        Rewind(ch);
        lin.files.Write(ch, 0, Bytes(256));
    }
    static void Rewind(int ch) {
        lseek(Drivers::LinManage::chrDevFd[static_cast<size_t>(ch)], 0, SEEK_SET);
    }

    // The record that was written behind the one that was read.
    Bytes Written(int ch) const { return lin.files.Read(ch, 128, 128); }

    static std::vector<LinSocket::Frame> Frames(int ch) {
        return LinDevice::Instance().sockets.at(static_cast<size_t>(ch))->Frames();
    }

    // At least `count` frames of a channel, as they go out; fewer, and a failure, when they do not
    // come in time.
    static std::vector<LinSocket::Frame> WaitForFrames(size_t count, int ch = 0) {
        std::vector<LinSocket::Frame> frames;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (frames.size() < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            for (auto& frame : Frames(ch)) {
                frames.push_back(std::move(frame));
            }
        }
        EXPECT_GE(frames.size(), count);
        return frames;
    }

    // How long it takes from one frame of channel 0 to the next, measured as they are written, in
    // ms. Both belong to the table that runs then.
    double Gap() const {
        using Clock = std::chrono::steady_clock;
        std::array<Clock::time_point, 2> times;
        std::atomic<size_t> count{0};
        lin.schedules.stopExecutor(0);
        lin.sockets[0]->beforeWrite = [&] {
            if (count < times.size()) {
                times[count] = Clock::now();
            }
            ++count;
        };
        lin.schedules.startExecutor(0);
        const auto end = Clock::now() + std::chrono::seconds(20);
        while (count < times.size() && Clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        lin.schedules.stopExecutor(0);
        lin.sockets[0]->beforeWrite = nullptr;
        EXPECT_GE(count, times.size());
        return std::chrono::duration<double, std::milli>(times[1] - times[0]).count();
    }

    static Bytes Pids(const std::vector<LinSocket::Frame>& frames) {
        Bytes pids;
        for (const auto& frame : frames) {
            pids.push_back(frame.at(0));
        }
        return pids;
    }

    // What `work` prints.
    template <typename Work> static std::string Told(const Work& work) {
        testing::internal::CaptureStdout();
        work();
        return testing::internal::GetCapturedStdout();
    }

    // Runs a loop for a while; what is printed meanwhile, behind the loop's own first line.
    static std::string Run(ZephEventLoop& loop, double seconds) {
        const std::string told = Told([&] {
            loop.runAfter(seconds, [&loop] { loop.quit(); });
            loop.loop();
        });
        return told.substr(told.find('\n') + 1);
    }

    // The message of a slot: its header only.
    static lin_tx_message Header(uint8_t pid, uint8_t dlc = 2) {
        lin_tx_message message{};
        message.lin_frame.pid = pid;
        message.lin_frame.dlc = dlc;
        message.lin_frame.sync = 0x55;
        return message;
    }

    // Downloads a table of these pids, each slot some milliseconds long.
    void Download(int ch, const Bytes& pids, uint16_t slotMs = 2) const {
        for (const uint8_t pid : pids) {
            const lin_tx_message message = Header(pid);
            EXPECT_EQ(lin.schedules.addToStandbyTable(ch, slotMs * 1000U, slotMs, &message), 0);
        }
        lin.schedules.setNewTable(ch);
    }

    LinDevice& lin = LinDevice::Instance();
};
