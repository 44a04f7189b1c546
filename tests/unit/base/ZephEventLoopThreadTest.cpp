#include "base/ZephEventLoopThread.h"

#include "base/LoopTest.h"
#include "base/ZephCurrentThread.h"
#include "base/ZephEventLoopThreadPool.h"
#include "base/ZephThread.h"

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <sys/syscall.h>

namespace {

constexpr int kCycles = 1'000;

TEST(ZephCurrentThread, TidIsTheKernelsAndOneForEachThread) {
    EXPECT_EQ(ZephCurrentThread::tid(), syscall(SYS_gettid));
    EXPECT_EQ(ZephCurrentThread::tid(), ZephCurrentThread::t_cachedTid);
    int other = 0;
    std::thread([&] { other = ZephCurrentThread::tid(); }).join();
    EXPECT_NE(other, 0);
    EXPECT_NE(other, ZephCurrentThread::tid());
}

TEST(ZephThread, TidIsKnownWhenStartReturns) {
    pid_t inside = 0;
    ZephThread thread([&] { inside = static_cast<pid_t>(syscall(SYS_gettid)); });
    EXPECT_FALSE(thread.started());
    EXPECT_EQ(thread.tid(), 0);
    thread.start();
    EXPECT_TRUE(thread.started());
    const pid_t tid = thread.tid();
    EXPECT_NE(tid, 0);
    thread.join();
    EXPECT_EQ(tid, inside);
}

TEST(ZephThread, DestroyedWithoutJoinItGoesOnDetached) {
    struct Shared {
        std::promise<void> go;
        std::promise<void> done;
    };
    const auto shared = std::make_shared<Shared>();
    {
        ZephThread thread([shared] {
            shared->go.get_future().wait();
            shared->done.set_value();
        });
        thread.start();
    }
    shared->go.set_value();
    EXPECT_EQ(shared->done.get_future().wait_for(kDeadline), std::future_status::ready);
}

TEST(ZephThread, JoinOfAThreadThatDoesNotRunReturns) {
    ZephThread thread([] {});
    thread.join();
    EXPECT_FALSE(thread.started());
    thread.start();
    thread.join();
    thread.join();
}

class ZephEventLoopThreadTest : public testing::Test {
    const QuietOutput quiet_;
};

TEST_F(ZephEventLoopThreadTest, StartLoopReturnsALoopThatTakesFunctors) {
    ZephEventLoopThread thread;
    ZephEventLoop* loop = thread.startLoop();
    ASSERT_NE(loop, nullptr);
    EXPECT_FALSE(loop->isInLoopThread());
    bool onLoop = false;
    RunOn(*loop, [&] {
        onLoop = loop->isInLoopThread() && ZephEventLoop::getEventLoopOfCurrentThread() == loop;
    });
    EXPECT_TRUE(onLoop);
}

TEST_F(ZephEventLoopThreadTest, InitCallbackRunsOnTheThreadBeforeTheLoopIsHandedOut) {
    ZephEventLoop* initialized = nullptr;
    bool onLoop = false;
    ZephEventLoopThread thread([&](ZephEventLoop* loop) {
        initialized = loop;
        onLoop = loop->isInLoopThread();
    });
    EXPECT_EQ(thread.startLoop(), initialized);
    EXPECT_TRUE(onLoop);
}

TEST_F(ZephEventLoopThreadTest, NeverStartedItIsDestroyedWithoutAWait) {
    bool called = false;
    {
        const ZephEventLoopThread thread([&](ZephEventLoop*) { called = true; });
    }
    EXPECT_FALSE(called);
}

TEST_F(ZephEventLoopThreadTest, LoopThatIsOverBeforeStartLoopLooksIsStillHandedOut) {
    ZephEventLoop* initialized = nullptr;
    ZephEventLoopThread thread([&](ZephEventLoop* loop) {
        initialized = loop;
        loop->queueInLoop([loop] { loop->quit(); });
        loop->wakeup();
    });
    EXPECT_EQ(thread.startLoop(), initialized);
}

TEST_F(ZephEventLoopThreadTest, DestroyedAtOnceItEndsALoopThatMayNotHaveStartedRunning) {
    for (int i = 0; i < kCycles; ++i) {
        ZephEventLoopThread thread;
        ASSERT_NE(thread.startLoop(), nullptr);
    }
}

TEST_F(ZephEventLoopThreadTest, FunctorsQueuedBeforeItsEndAreRun) {
    int ran = 0;
    {
        ZephEventLoopThread thread;
        ZephEventLoop* loop = thread.startLoop();
        for (int i = 0; i < 100; ++i) {
            loop->queueInLoop([&] { ++ran; });
        }
    }
    EXPECT_EQ(ran, 100);
}

TEST_F(ZephEventLoopThreadTest, LoopThatHasQuitMayStillBeReachedUntilTheThreadGoes) {
    ZephEventLoopThread thread;
    ZephEventLoop* loop = thread.startLoop();
    RunOn(*loop, [&] { loop->quit(); });
    for (int i = 0; i < 100; ++i) {
        loop->quit();
        loop->queueInLoop([] {});
        loop->cancel(loop->runAfter(0.0, [] {}));
        std::this_thread::yield();
    }
}

TEST_F(ZephEventLoopThreadTest, QuitStormWhileItIsDestroyedIsSafe) {
    for (int cycle = 0; cycle < 50; ++cycle) {
        ZephEventLoopThread thread;
        ZephEventLoop* loop = thread.startLoop();
        std::vector<std::thread> quitters;
        for (int t = 0; t < 4; ++t) {
            quitters.emplace_back([loop] {
                for (int i = 0; i < 50; ++i) {
                    loop->quit();
                }
            });
        }
        for (std::thread& quitter : quitters) {
            quitter.join();
        }
    }
}

using ZephEventLoopThreadPoolTest = ZephEventLoopThreadTest;

TEST_F(ZephEventLoopThreadPoolTest, DealsOutThreeLoopsInRotation) {
    ZephEventLoop base;
    ZephEventLoopThreadPool pool(&base, 3);
    std::vector<ZephEventLoop*> initialized;
    pool.start([&](ZephEventLoop* loop) { initialized.push_back(loop); });
    const std::vector<ZephEventLoop*> loops = pool.GetLoops();
    ASSERT_EQ(loops.size(), 3U);
    EXPECT_EQ(initialized, loops);
    EXPECT_NE(loops[0], loops[1]);
    EXPECT_NE(loops[1], loops[2]);
    EXPECT_NE(loops[2], loops[0]);
    for (const size_t expected : {0U, 1U, 2U, 0U, 1U, 2U, 0U}) {
        EXPECT_EQ(pool.getNextLoop(), loops[expected]);
    }
}

TEST_F(ZephEventLoopThreadPoolTest, BeforeItsStartThereIsOnlyTheBaseLoop) {
    ZephEventLoop base;
    ZephEventLoopThreadPool pool(&base, 3);
    EXPECT_FALSE(pool.started());
    EXPECT_EQ(pool.getNextLoop(), &base);
    EXPECT_TRUE(pool.GetLoops().empty());
    EXPECT_EQ(pool.name(), "ZephEventLoopThreadPool");
    pool.start();
    EXPECT_TRUE(pool.started());
    EXPECT_NE(pool.getNextLoop(), &base);
}

TEST_F(ZephEventLoopThreadPoolTest, WithoutThreadsTheCallbackGetsTheBaseLoop) {
    ZephEventLoop base;
    ZephEventLoopThreadPool pool(&base, 0);
    std::vector<ZephEventLoop*> initialized;
    pool.start([&](ZephEventLoop* loop) { initialized.push_back(loop); });
    EXPECT_EQ(initialized, std::vector<ZephEventLoop*>{&base});
    EXPECT_EQ(pool.getNextLoop(), &base);
    EXPECT_EQ(pool.getNextLoop(), &base);
    ZephEventLoopThreadPool quiet(&base, 0);
    quiet.start(); // no callback, nothing to call
    EXPECT_TRUE(quiet.started());
}

TEST_F(ZephEventLoopThreadPoolTest, StartedAndDestroyedManyTimesItNeverHangs) {
    ZephEventLoop base;
    for (int i = 0; i < kCycles; ++i) {
        ZephEventLoopThreadPool pool(&base, 3);
        pool.start();
        ASSERT_EQ(pool.GetLoops().size(), 3U);
    }
}

TEST_F(ZephEventLoopThreadPoolTest, ExitMayQuitItsLoopsWhileItStartsAndAfterTheyHaveQuit) {
    ZephEventLoop base;
    for (int cycle = 0; cycle < 50; ++cycle) {
        ZephEventLoopThreadPool pool(&base, 3);
        std::atomic<bool> done{false};
        std::thread exit([&] {
            while (!done) {
                for (ZephEventLoop* loop : pool.GetLoops()) {
                    loop->quit();
                    loop->queueInLoop([loop] { loop->quit(); });
                }
                std::this_thread::yield();
            }
        });
        pool.start();
        done = true;
        exit.join();
    }
}

} // namespace
