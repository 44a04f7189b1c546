#include "base/ZephEventLoop.h"

#include "base/LoopTest.h"
#include "base/ZephChannel.h"
#include "base/ZephEventLoopThread.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/resource.h>

namespace {

TEST(ZephEventLoop, SaysThatItStartsInOneLine) {
    ZephEventLoop loop;
    loop.queueInLoop([&] { loop.quit(); });
    loop.wakeup();
    testing::internal::CaptureStdout();
    loop.loop();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[ZephA] ZephEventLoop::loop(), TID = " + std::to_string(pthread_self()) + "\n");
}

TEST(ZephEventLoop, QuitFromAnotherThreadEndsAnIdleLoopAtOnce) {
    ZephEventLoop loop;
    std::promise<void> running;
    loop.queueInLoop([&] { running.set_value(); });
    loop.wakeup();
    std::thread other([&] {
        running.get_future().wait();
        loop.quit();
    });
    RunUntilQuit(loop);
    other.join();
}

TEST(ZephEventLoop, QuitInACallbackStillRunsThePendingFunctors) {
    const UniqueFd fd = ReadableFd();
    ZephEventLoop loop;
    ZephChannel channel(&loop, fd.get());
    int calls = 0;
    bool ran = false;
    channel.setReadCallback([&](ZephTimestamp) {
        ++calls;
        loop.quit();
        loop.queueInLoop([&] { ran = true; });
    });
    channel.enableReading();
    RunUntilQuit(loop);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(ran);
    channel.remove();
}

TEST(ZephEventLoop, QuitBeforeLoopIsForgotten) {
    ZephEventLoop loop;
    loop.quit();
    bool ran = false;
    loop.queueInLoop([&] { ran = true; });
    RunPending(loop);
    EXPECT_TRUE(ran);
}

TEST(ZephEventLoop, QuitThatIsQueuedBeforeLoopEndsIt) {
    ZephEventLoop loop;
    std::thread other([&] { loop.queueInLoop([&loop] { loop.quit(); }); });
    other.join();
    RunUntilQuit(loop);
}

TEST(ZephEventLoop, CanBeRunAgainAfterQuit) {
    ZephEventLoop loop;
    RunPending(loop);
    bool ran = false;
    loop.queueInLoop([&] { ran = true; });
    RunPending(loop);
    EXPECT_TRUE(ran);
}

TEST(ZephEventLoop, RunInLoopOnItsOwnThreadRunsAtOnce) {
    ZephEventLoop loop;
    bool ran = false;
    loop.runInLoop([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST(ZephEventLoop, RunInLoopFromAnotherThreadIsQueued) {
    ZephEventLoop loop;
    std::thread::id runner;
    std::thread other([&] {
        EXPECT_FALSE(loop.isInLoopThread());
        loop.runInLoop([&] {
            runner = std::this_thread::get_id();
            loop.quit();
        });
    });
    other.join();
    EXPECT_EQ(runner, std::thread::id());
    RunUntilQuit(loop);
    EXPECT_EQ(runner, std::this_thread::get_id());
    EXPECT_TRUE(loop.isInLoopThread());
}

TEST(ZephEventLoop, QueueInLoopOnItsOwnThreadDoesNotRunAtOnce) {
    ZephEventLoop loop;
    bool ran = false;
    loop.queueInLoop([&] { ran = true; });
    EXPECT_FALSE(ran);
    RunPending(loop);
    EXPECT_TRUE(ran);
}

TEST(ZephEventLoop, FunctorQueuedByAFunctorRunsInTheNextIterationWithoutASleep) {
    ZephEventLoop loop;
    std::string order;
    loop.queueInLoop([&] {
        order += "first ";
        loop.queueInLoop([&] {
            order += "queued by first";
            loop.quit();
        });
    });
    loop.queueInLoop([&] { order += "second "; });
    loop.wakeup();
    RunUntilQuit(loop); // its deadline is shorter than an idle sleep
    EXPECT_EQ(order, "first second queued by first");
}

TEST(ZephEventLoop, FunctorQueuedBeforeLoopRunsWithoutASleep) {
    ZephEventLoop loop;
    loop.queueInLoop([&] { loop.quit(); });
    RunUntilQuit(loop); // its deadline is shorter than an idle sleep
}

TEST(ZephEventLoop, NoWakeUpIsLostBetweenTwoLoops) {
    constexpr int kRoundTrips = 20'000;
    const QuietOutput quiet;
    ZephEventLoop here;
    ZephEventLoopThread thread;
    ZephEventLoop* there = thread.startLoop();
    int left = kRoundTrips;
    std::function<void()> pong;
    const auto ping = [&] { there->queueInLoop([&] { here.queueInLoop(pong); }); };
    pong = [&] {
        if (--left == 0) {
            here.quit();
        } else {
            ping();
        }
    };
    ping();
    RunUntilQuit(here);
    EXPECT_EQ(left, 0);
}

TEST(ZephEventLoop, CallbackMayRunTheLoopItself) {
    const UniqueFd outerFd = ReadableFd();
    ZephEventLoop loop;
    ZephChannel outer(&loop, outerFd.get());
    int depth = 0;
    int deepest = 0;
    outer.setReadCallback([&](ZephTimestamp) {
        deepest = std::max(deepest, ++depth);
        if (depth < 3) {
            loop.loop();
        }
        --depth;
        loop.quit();
    });
    outer.enableReading();
    RunUntilQuit(loop);
    EXPECT_EQ(deepest, 3);
    outer.remove();
}

TEST(ZephEventLoop, PollReturnTimeIsTheTimeThatCallbacksGet) {
    const UniqueFd fd = ReadableFd();
    ZephEventLoop loop;
    ZephChannel channel(&loop, fd.get());
    const ZephTimestamp before = ZephTimestamp::now();
    ZephTimestamp received;
    channel.setReadCallback([&](ZephTimestamp time) {
        received = time;
        EXPECT_EQ(loop.pollReturnTime().microSecondsSinceEpoch(), time.microSecondsSinceEpoch());
        loop.quit();
    });
    channel.enableReading();
    RunUntilQuit(loop);
    EXPECT_FALSE(received < before);
    EXPECT_FALSE(ZephTimestamp::now() < received);
    channel.remove();
}

TEST(ZephEventLoop, ChannelDestroyedByAnEarlierCallbackOfThePollIsNotCalled) {
    constexpr size_t kChannels = 10;
    std::vector<UniqueFd> fds;
    ZephEventLoop loop;
    std::vector<std::unique_ptr<ZephChannel>> channels(kChannels);
    int calls = 0;
    for (size_t i = 0; i < kChannels; ++i) {
        fds.push_back(ReadableFd());
        channels[i] = std::make_unique<ZephChannel>(&loop, fds.back().get());
        channels[i]->setReadCallback([&, i](ZephTimestamp) {
            ++calls;
            for (size_t other = 0; other < kChannels; ++other) {
                if (other != i && channels[other]) {
                    channels[other]->remove();
                    channels[other].reset();
                }
            }
            loop.quit();
        });
        channels[i]->enableReading();
    }
    RunUntilQuit(loop);
    EXPECT_EQ(calls, 1);
    for (const auto& channel : channels) {
        if (channel) {
            channel->remove();
        }
    }
}

TEST(ZephEventLoop, SecondLoopOfAThreadWorksAndIsNotRecorded) {
    EXPECT_EQ(ZephEventLoop::getEventLoopOfCurrentThread(), nullptr);
    {
        ZephEventLoop first;
        EXPECT_EQ(ZephEventLoop::getEventLoopOfCurrentThread(), &first);
        {
            ZephEventLoop second;
            EXPECT_EQ(ZephEventLoop::getEventLoopOfCurrentThread(), &first);
            bool ran = false;
            second.queueInLoop([&] { ran = true; });
            RunPending(second);
            EXPECT_TRUE(ran);
        }
        // Whichever loop goes, the record goes with it.
        EXPECT_EQ(ZephEventLoop::getEventLoopOfCurrentThread(), nullptr);
    }
    EXPECT_EQ(ZephEventLoop::getEventLoopOfCurrentThread(), nullptr);
}

TEST(ZephEventLoop, FunctorsThatHaveNotRunAreDroppedWithTheLoop) {
    auto held = std::make_shared<int>(0);
    bool ran = false;
    {
        ZephEventLoop loop;
        loop.queueInLoop([held, &ran] { ran = true; });
        EXPECT_EQ(held.use_count(), 2);
    }
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_FALSE(ran);
}

TEST(ZephEventLoop, WhatADroppedFunctorHoldsMayTakeItsChannelOffTheLoop) {
    const UniqueFd fd = ReadableFd();
    ZephEventLoop* gone = nullptr;
    {
        ZephEventLoop loop;
        gone = &loop;
        const auto removeAndDelete = [&loop, &gone](ZephChannel* channel) {
            EXPECT_EQ(gone, &loop);
            channel->remove();
            EXPECT_FALSE(loop.hasChannel(channel));
            delete channel;
        };
        const std::shared_ptr<ZephChannel> inFunctor(new ZephChannel(&loop, fd.get()),
                                                     removeAndDelete);
        inFunctor->enableReading();
        loop.queueInLoop([inFunctor] {});
    }
}

TEST(ZephEventLoop, FunctorsOfManyThreadsAllRunAndEachThreadsInOrder) {
    constexpr int kThreads = 8;
    constexpr int kEach = 5'000;
    ZephEventLoop loop;
    std::vector<int> next(kThreads, 0);
    int outOfOrder = 0;
    int total = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                loop.queueInLoop([&, t, i] {
                    outOfOrder += next[static_cast<size_t>(t)]++ == i ? 0 : 1;
                    if (++total == kThreads * kEach) {
                        loop.quit();
                    }
                });
            }
        });
    }
    RunUntilQuit(loop);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(total, kThreads * kEach);
    EXPECT_EQ(outOfOrder, 0);
}

TEST(ZephEventLoop, QuitsFromManyThreadsEndItOnce) {
    ZephEventLoop loop;
    std::promise<void> running;
    const std::shared_future<void> isRunning = running.get_future().share();
    loop.queueInLoop([&] { running.set_value(); });
    loop.wakeup();
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            isRunning.wait();
            for (int i = 0; i < 1'000; ++i) {
                loop.quit();
            }
        });
    }
    RunUntilQuit(loop);
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ZephEventLoop, SignalDuringThePollDoesNotEndTheLoop) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, &before);
    ZephEventLoop loop;
    const pthread_t loopThread = pthread_self();
    std::promise<void> running;
    loop.queueInLoop([&] { running.set_value(); });
    loop.wakeup();
    std::thread other([&] {
        running.get_future().wait();
        for (int i = 0; i < 100; ++i) {
            pthread_kill(loopThread, SIGUSR2);
        }
        loop.queueInLoop([&] { loop.quit(); });
    });
    RunUntilQuit(loop);
    other.join();
    sigaction(SIGUSR2, &before, nullptr);
}

TEST(ZephEventLoop, PollVariableLeavesNoPoller) {
    setenv("ZEPH_USE_POLL", "", 1);
    EXPECT_EQ(ZephPoller::newDefaultPoller(nullptr), nullptr);
    unsetenv("ZEPH_USE_POLL");
    EXPECT_NE(ZephPoller::newDefaultPoller(nullptr), nullptr);
}

TEST(ZephEventLoopDeathTest, PollVariableEndsTheProcessAndSaysWhatToUnset) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            setenv("ZEPH_USE_POLL", "1", 1);
            const ZephEventLoop loop;
        },
        testing::KilledBySignal(SIGABRT), "unset ZEPH_USE_POLL");
}

void MakeLoopsUntilDescriptorsRunOut() {
    const rlimit few{64, 64};
    setrlimit(RLIMIT_NOFILE, &few);
    std::vector<std::unique_ptr<ZephEventLoop>> loops;
    for (rlim_t i = 0; i < few.rlim_cur; ++i) {
        loops.push_back(std::make_unique<ZephEventLoop>());
    }
}

TEST(ZephEventLoopDeathTest, NoDescriptorForTheWakeUpEndsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(MakeLoopsUntilDescriptorsRunOut(), testing::KilledBySignal(SIGABRT), "no eventfd");
}

} // namespace
