#pragma once

#include "doubles/ThreadCost.h"
#include "modules/LinFixture.h"
#include "modules/LinSchedule/LinExecutor.h"

#include <functional>
#include <mutex>

// When its frames were written, and with what the thread had until then.
class SlotWatch : public LinSocket {
  public:
    using Clock = std::chrono::steady_clock;

    struct Slot {
        Clock::time_point start;
        uint8_t pid;
        size_t allocations;
        size_t locks;
    };

    SlotWatch() : LinSocket(0) { slots_.reserve(4096); }

    int Write(const canfd_frame* frame) override {
        const Slot slot{Clock::now(), static_cast<uint8_t>(frame->can_id), ThreadAllocations(),
                        ThreadMutexLocks()};
        {
            const std::lock_guard lock(mutex_);
            slots_.push_back(slot);
        }
        if (delay) {
            delay(slots_.size());
        }
        return LinSocket::Write(frame);
    }

    std::vector<Slot> Slots() {
        const std::lock_guard lock(mutex_);
        return slots_;
    }

    std::function<void(size_t count)> delay; // what the driver does with the n-th frame

  private:
    std::mutex mutex_;
    std::vector<Slot> slots_;
};

// An executor of channel 0 that walks `table`.
class LinExecutorTest : public LinTest {
  protected:
    using Clock = SlotWatch::Clock;
    using milliseconds = std::chrono::milliseconds;

    LinExecutorTest() {
        com.ReplaceChannel(0, socket);
        com.LinComMOpen(0);
    }
    ~LinExecutorTest() override { executor.stop(); }

    void Add(uint8_t pid, uint32_t us) const {
        TableItem item;
        item.pid = pid;
        item.delay_us = us;
        item.delay_vba = us;
        item.msg = Header(pid);
        testing::internal::CaptureStdout(); // a pid that stands twice is told
        table->addItem(std::move(item));
        testing::internal::GetCapturedStdout();
    }

    void Start() {
        executor.setTable(table);
        executor.start();
    }

    std::vector<SlotWatch::Slot> WaitForSlots(size_t count) const {
        const auto end = Clock::now() + std::chrono::seconds(20);
        while (socket->Slots().size() < count && Clock::now() < end) {
            std::this_thread::sleep_for(milliseconds(1));
        }
        auto slots = socket->Slots();
        EXPECT_GE(slots.size(), count);
        slots.resize(count);
        return slots;
    }

    static double Ms(Clock::duration span) {
        return std::chrono::duration<double, std::milli>(span).count();
    }

    ZephLinComM com;
    std::shared_ptr<SlotWatch> socket = std::make_shared<SlotWatch>();
    std::shared_ptr<LinTable> table = std::make_shared<LinTable>(0);
    LinExecutor executor{0, com};
};
