// The moment at which a replay ends: a request then finds it over, or keeps it.

#include "modules/ReplayFixture.h"

#include <sched.h>
#include <sys/prctl.h>

namespace {

// Here the replay thread runs on the test's CPU and only while the test sleeps, so that the request
// of a test that wakes up stops it between any two of its instructions.
class ReplayEndTest : public ReplayTest {
  protected:
    ReplayEndTest() {
        sched_getaffinity(0, sizeof(before_), &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        sched_setaffinity(0, sizeof(one), &one);
        prctl(PR_SET_TIMERSLACK, 1);
        Watch([this] {
            writer_ = gettid();
            gate.Pass();
        });
    }
    ~ReplayEndTest() override {
        prctl(PR_SET_TIMERSLACK, 0); // as it was
        sched_setaffinity(0, sizeof(before_), &before_);
    }

    // A replay whose closing wait ends while this thread sleeps, or would just then.
    void MeetTheEnd() {
        TimerSettings settings;
        settings.Replace(kClosingWait, kNoEnd);
        gate.Open();
        Take(Numbered(1, id_));
        AwaitSent(1);
        const sched_param none{};
        ASSERT_EQ(sched_setscheduler(writer_, SCHED_IDLE, &none), 0);
        gate.Close();
        Command(kFinish);
        AwaitClosingWait(settings);
        const auto timers = Opened("timerfd");
        ASSERT_EQ(timers.size(), 1U);
        timespec at{};
        clock_gettime(CLOCK_MONOTONIC, &at);
        at = After(at, 100000);
        const itimerspec end{{0, 0}, at};
        timerfd_settime(timers[0], TFD_TIMER_ABSTIME, &end, nullptr);
        at = After(at, delay_);
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
    }

    // Behind the request's answer: true when the end came first. The next round comes nearer to the
    // border between the two.
    bool Ended() {
        Listen();
        const bool ended = ends > 0;
        delay_ += ended ? -kStep : kStep;
        ++(ended ? over_ : kept_);
        return ended;
    }

    // Rounds for some seconds, and for longer on a machine where one of the two has not come yet.
    bool GoOn() {
        const auto now = Clock::now();
        return now < begin_ + std::chrono::seconds(3) ||
               ((over_ == 0 || kept_ == 0) && now < begin_ + kDeadline);
    }
    void ExpectBoth() {
        EXPECT_GT(over_, 0);
        EXPECT_GT(kept_, 0);
        RecordProperty("over", over_);
        RecordProperty("kept", kept_);
    }

    // Ends the round.
    void StartAfresh() {
        gate.Open();
        Command(kCancel);
        Listen();
        sent.clear();
        ends = 0;
    }

  private:
    static constexpr int64_t kStep = 150; // nanoseconds

    static timespec After(timespec time, int64_t ns) {
        time.tv_nsec += ns;
        time.tv_sec += time.tv_nsec / 1000000000;
        time.tv_nsec %= 1000000000;
        return time;
    }

    const uint32_t id_ = 0x100;
    const Clock::time_point begin_ = Clock::now();
    cpu_set_t before_{};
    std::atomic<pid_t> writer_{0};
    int64_t delay_ = 10000; // nanoseconds between the end of the wait and the request
    int over_ = 0;
    int kept_ = 0;
};

TEST_F(ReplayEndTest, ABatchIsSentByThisReplayOrByTheNext) {
    while (GoOn()) {
        MeetTheEnd();
        Take(Numbered(1, 0x101));
        Ended(); // the frame is held up, and with it an end that it comes before
        AwaitHeld();
        gate.Open();
        AwaitSent(2);
        ASSERT_EQ(sent, Count(2, 0x100));
        StartAfresh();
    }
    ExpectBoth();
}

TEST_F(ReplayEndTest, APauseHoldsTheEndMessageOrComesBehindIt) {
    while (GoOn()) {
        MeetTheEnd();
        Command(kPause);
        if (!Ended()) {
            ExpireAndAwait();
            Listen();
            ASSERT_EQ(ends, 0);
            Command(kContinue);
            AwaitEnd();
        }
        StartAfresh();
    }
    ExpectBoth();
}

} // namespace
