// A replay that runs: what is sent when, what the host is told, and what each request does to it.

#include "doubles/ThreadCost.h"
#include "modules/ReplayFixture.h"
#include "support/ThreadState.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <numeric>

#include <pthread.h>
#include <sched.h>

namespace {

using ReplayRunningTest = ReplayTest;

TEST_F(ReplayRunningTest, FramesKeepTheirIntervals) {
    constexpr size_t kFrames = 50;
    std::vector<Clock::time_point> times;
    times.reserve(kFrames);
    Watch([&] { times.push_back(Clock::now()); });
    const auto start = Clock::now();
    Take(Numbered(kFrames, 0x100, 2000));
    Command(kFinish);
    AwaitEnd();
    ASSERT_EQ(times.size(), kFrames);
    // Never early, by more than the correction; how late is the machine's affair.
    for (size_t i = 0; i < kFrames; ++i) {
        EXPECT_GE(times[i] - start, std::chrono::microseconds(1980 * (i + 1)));
    }
}

TEST_F(ReplayRunningTest, TheNextTimerIsArmedBeforeAFrameIsWritten) {
    const TimerSettings settings;
    std::vector<size_t> settingsBefore;
    Watch([&] {
        settingsBefore.push_back(settings.Count());
        gate.Pass();
    });
    gate.Close();
    Take(Numbered(3, 0x100, 20000));
    AwaitHeld();
    Command(kFinish);
    gate.Open();
    AwaitEnd();
    EXPECT_EQ(settingsBefore, (std::vector<size_t>{2, 3, 3}));
    // Three frames, the last of them followed by the steps of the end.
    EXPECT_EQ(settings.Taken(),
              (std::vector<int64_t>{19980000, 19980000, 19980000, 980000, 99980000}));
}

TEST_F(ReplayRunningTest, AFrameAllocatesNothingAndTakesNoLock) {
    constexpr size_t kFrames = 400;
    struct Cost {
        size_t allocations;
        size_t locks;
    };
    std::vector<Cost> costs;
    costs.reserve(kFrames);
    Watch([&] { costs.push_back({ThreadAllocations(), ThreadMutexLocks()}); });
    Take(Numbered(kFrames, 0x100));
    Command(kFinish);
    AwaitEnd();
    ASSERT_EQ(costs.size(), kFrames);
    // While more than half of the ring is left, that is without a signal to the host.
    EXPECT_EQ(costs[140].allocations, costs[10].allocations);
    EXPECT_EQ(costs[140].locks, costs[10].locks);
    // The signals take the lock of the USB link, and nothing else.
    EXPECT_EQ(costs[399].allocations, costs[10].allocations);
    EXPECT_EQ(costs[399].locks - costs[10].locks, ThreadCostIsCounted() ? 1U : 0U);
}

TEST_F(ReplayRunningTest, TheThreadHasTheHighestPriority) {
    std::atomic<int> policy{-1};
    std::atomic<int> priority{-1};
    Watch([&] {
        gate.Pass();
        sched_param param{};
        int now = -1;
        pthread_getschedparam(pthread_self(), &now, &param);
        policy = now;
        priority = param.sched_priority;
    });
    gate.Close();
    Take({After(0)});
    gate.Open(); // the main thread has raised the thread
    AwaitSent(1);
    EXPECT_EQ(policy, SCHED_FIFO);
    EXPECT_EQ(priority, sched_get_priority_max(SCHED_FIFO));
}

std::atomic<pthread_t> handledOn{};

TEST_F(ReplayRunningTest, SignalsStayAwayFromTheThread) {
    handledOn = pthread_t{};
    struct sigaction before {};
    struct sigaction action {};
    action.sa_handler = [](int) { handledOn = pthread_self(); };
    sigaction(SIGUSR2, &action, &before);
    Take(Numbered(20, 0x100, 2000));
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &one, nullptr);
    kill(getpid(), SIGUSR2); // for any thread that takes it
    LetPass(10);
    EXPECT_EQ(handledOn, pthread_t{});
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    EXPECT_EQ(handledOn, pthread_self());
    sigaction(SIGUSR2, &before, nullptr);
    AwaitSent(20);
    EXPECT_TRUE(replies.empty());
}

TEST_F(ReplayRunningTest, AProcessThatIsStoppedAndGoesOnGoesOnReplaying) {
    auto batch = Numbered(2, 0);
    batch[1].interval = 60 * kSecond; // the thread waits for it
    Take(batch);
    AwaitSent(1);
    ASSERT_EQ(std::system("kill -STOP $PPID; sleep 0.05; kill -CONT $PPID"), 0);
    LetPass(20);
    EXPECT_TRUE(replies.empty()); // no refusal
    EXPECT_EQ(OpenedInAll(), 3U);
}

TEST_F(ReplayRunningTest, TheHostIsAskedOnceWhenTheRingIsHalfEmpty) {
    Take(Numbered(400, 0x100));
    AwaitSent(400);
    LetPass(20);
    EXPECT_EQ(signals, 1);
}

TEST_F(ReplayRunningTest, ABatchBehindARunningOneFollowsIt) {
    Take(Numbered(100, 0x100, 100));
    Take(Numbered(100, 0x164, 100));
    AwaitSent(200);
    EXPECT_EQ(sent, Count(200, 0x100));
}

TEST_F(ReplayRunningTest, ABatchAfterTheRingRanEmptyStartsItAgain) {
    for (uint32_t i = 0; i < 5; ++i) {
        Take(Numbered(10, 0x100 + 10 * i, 50));
        AwaitSent(10 * (i + 1));
        LetPass(i % 2 == 0 ? 0 : 5);
    }
    EXPECT_EQ(sent, Count(50, 0x100));
}

TEST_F(ReplayRunningTest, ALongTraceFlowsInPieces) {
    constexpr uint32_t kBatch = 250;
    uint32_t downloaded = 0;
    while (downloaded < 2000) {
        Take(Numbered(kBatch, downloaded));
        downloaded += kBatch;
        AwaitSent(downloaded - kBatch / 2);
    }
    Command(kFinish);
    AwaitEnd();
    EXPECT_EQ(sent, Count(2000, 0));
}

TEST_F(ReplayRunningTest, ARefusedBatchDoesNotDisturb) {
    Take(Numbered(20, 0x100, 1000));
    ExpectRefused({18, kDownload, 1, 0}, kErrorLength);
    ExpectRefused({18, 99}, kWrongSid);
    auto other = Numbered(2, 0);
    other[0].channel = 6;
    ExpectRefused(Batch(other), kOutOfRange);
    AwaitSent(20);
    EXPECT_EQ(sent, Count(20, 0x100));
}

TEST_F(ReplayRunningTest, OfABatchThatEndsEarlyTheWholeFramesAreSent) {
    HoldTheFirst(Numbered(2, 0x100));
    Bytes request = Batch(Numbered(2, 0x102));
    request[2] = 3;
    ExpectRefused(request, kErrorLength);
    gate.Open();
    AwaitSent(4);
    EXPECT_EQ(sent, Count(4, 0x100));
}

TEST_F(ReplayRunningTest, ARingThatStaysFullRefusesTheBatch) {
    Take(Numbered(511, 0x100, kLate));
    ExpectRefused(Batch(Numbered(1, 0)), kOpenFailed);
    Command(kCancel);
    ExpectAReplayWorks();
}

TEST_F(ReplayRunningTest, ABatchThatFindsTheRingFullWaitsForAFrameToLeaveIt) {
    // The frame in hand is let go when the host's thread has been seen to sleep in its request.
    const pid_t host = gettid();
    std::atomic<bool> hold{true}, inHand{false}, asked{false};
    std::atomic<uint32_t> before{0};
    Watch([&] {
        inHand = true;
        while (hold) {
            if (!asked) {
                std::this_thread::sleep_for(std::chrono::microseconds(50));
            } else if (usb.Get(MemoryUsb::kReadOut) != before && Sleeps(host)) {
                return;
            }
        }
    });
    const auto deadline = Clock::now() + kDeadline;
    bool taken = false;
    while (!taken && Clock::now() < deadline) { // the thread may be too late
        Command(kCancel);
        Listen();
        sent.clear();
        hold = true;
        inHand = false;
        Take(Numbered(1, 0));
        Await([&] { return inHand.load(); }, "write");
        Take(Numbered(511, 1));
        before = usb.Get(MemoryUsb::kReadOut);
        asked = true;
        Download(Numbered(1, 512));
        asked = false;
        hold = false;
        Listen();
        taken = std::exchange(replies, {}).empty();
    }
    EXPECT_TRUE(taken);
    AwaitSent(513);
    EXPECT_EQ(sent, Count(513, 0));
}

TEST_F(ReplayRunningTest, FramesThatCannotBeWrittenArePassedOver) {
    net::ZephCanComM::GetInstance().CloseCallback(1, 1);
    auto batch = Numbered(6, 0x100);
    batch[1].channel = 1; // no socket
    batch[2].channel = 6; // no channel
    batch[3].channel = 255;
    batch[4].channel = 8;
    Take(batch);
    AwaitSent(2);
    EXPECT_EQ(sent, (Ids{0x100, 0x105}));
    LetPass(20);
    EXPECT_TRUE(replies.empty());
}

TEST_F(ReplayRunningTest, ContinueWhileRunningRestartsTheWaitingInterval) {
    const TimerSettings settings;
    Take(Numbered(2, 0x100, kSecond));
    Await([&] { return settings.Count() == 1; }, "setting");
    Command(kContinue);
    Await([&] { return settings.Count() == 2; }, "setting");
    EXPECT_EQ(settings.Taken(), (std::vector<int64_t>{999980000, 999980000}));
}

// The interval 0xFFFFFFFF disarms the timer; what else is there stays with its frame.
TEST_F(ReplayRunningTest, TheIntervalNeverHoldsItsFrameAndAllBehindItUntilACancel) {
    auto batch = Numbered(3, 0x100);
    batch[1].interval = kNever;
    Take(batch);
    AwaitSent(1);
    LetPass(20);
    Take(Numbered(3, 0x103));
    Command(kContinue);
    Command(kFinish);
    LetPass(150);
    EXPECT_EQ(sent, Count(1, 0x100));
    EXPECT_EQ(ends, 0);
    Command(kCancel);
    ExpectAReplayWorks();
}

TEST_F(ReplayRunningTest, ALongIntervalDoesNotHoldUpACancel) {
    Take({After(0x7FFFFFFF)});
    LetPass(5);
    Command(kCancel);
    ExpectAReplayWorks();
}

TEST_F(ReplayRunningTest, OtherNegativeIntervalsEndTheReplay) {
    for (const uint32_t interval : {0x80000000U, 0xFFFFFFFEU, 0xC0000000U, 0xFFF0BDC0U}) {
        Download({After(interval)});
        AwaitReply();
        ExpectRefusal(Reply(), kOpenFailed, 18, kDownload);
        ExpectAReplayWorks();
        Command(kCancel);
        EXPECT_EQ(OpenedInAll(), 0U);
    }
}

TEST_F(ReplayRunningTest, AFailureNamesTheLastRequest) {
    auto batch = Numbered(3, 0x100, 2000);
    batch[2].interval = 0x80000000;
    HoldTheFirst(batch);
    ExpectRefused({18, 99}, kWrongSid);
    gate.Open();
    AwaitReply();
    ExpectRefusal(Reply(), kOpenFailed, 18, 99);
    // The frame before the one with that interval has been sent, and no more.
    EXPECT_EQ(sent, Count(2, 0x100));
    ExpectAReplayWorks();
}

TEST_F(ReplayRunningTest, AFailedWaitEndsTheReplay) {
    HoldTheFirst(Numbered(50, 0x100, 2000));
    const auto waits = Opened("eventpoll");
    ASSERT_EQ(waits.size(), 1U);
    const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    ASSERT_EQ(dup2(null.get(), waits[0]), waits[0]); // no descriptor to wait on any more
    gate.Open();
    AwaitReply();
    ExpectRefusal(Reply(), kOpenFailed, 18, kDownload);
    ExpectAReplayWorks();
    Command(kCancel);
    EXPECT_EQ(OpenedInAll(), 0U);
}

TEST_F(ReplayRunningTest, AFailedTimerEndsTheReplayBehindTheFrameInHand) {
    HoldTheFirst(Numbered(50, 0x100));
    const auto timers = Opened("timerfd");
    ASSERT_EQ(timers.size(), 1U);
    const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    ASSERT_EQ(dup2(null.get(), timers[0]), timers[0]);
    Command(kContinue); // sets the timer anew
    gate.Open();
    AwaitReply();
    ExpectRefusal(Reply(), kOpenFailed, 18, kContinue);
    EXPECT_EQ(sent, Count(1, 0x100));
    ExpectAReplayWorks();
}

TEST_F(ReplayRunningTest, AFailureForgetsAFinish) {
    auto batch = Numbered(2, 0x100);
    batch[1].interval = 0x80000000; // fails ahead of the first frame's write
    HoldTheFirst(batch);
    Command(kFinish);
    gate.Open();
    AwaitReply();
    ExpectRefusal(Reply(), kOpenFailed, 18, kFinish);
    ExpectAReplayWorks();
    LetPass(150);
    EXPECT_EQ(ends, 0);
}

} // namespace
