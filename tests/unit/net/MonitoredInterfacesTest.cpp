#include "net/MonitoredInterfaces.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <thread>

#include <gtest/gtest.h>

namespace {

TEST(MonitoredInterfaces, AreNoneAtFirst) {
    const net::MonitoredInterfaces set;
    for (int index = 0; index < 1000; ++index) {
        EXPECT_FALSE(set.Has(index));
    }
}

TEST(MonitoredInterfaces, HoldJustWhatWasPutIn) {
    net::MonitoredInterfaces set;
    const int wanted[] = {1, 65, 129, 4096, INT_MAX, 0, -1, INT_MIN};
    for (const int index : wanted) {
        set.Set(index, true);
    }
    for (const int index : wanted) {
        EXPECT_TRUE(set.Has(index)) << index;
    }
    for (const int index : {2, 66, 193, 4097, INT_MAX - 1, -2, INT_MIN + 1}) {
        EXPECT_FALSE(set.Has(index)) << index;
    }
    set.Set(65, false); // one of several that share a chain
    EXPECT_FALSE(set.Has(65));
    EXPECT_TRUE(set.Has(1));
    EXPECT_TRUE(set.Has(129));
}

TEST(MonitoredInterfaces, AreASetAndNoCount) {
    net::MonitoredInterfaces set;
    set.Set(7, true);
    set.Set(7, true);
    set.Set(7, false);
    EXPECT_FALSE(set.Has(7));
    set.Set(7, true);
    EXPECT_TRUE(set.Has(7));
}

TEST(MonitoredInterfaces, TakingOutWhatIsNotInIsNoError) {
    net::MonitoredInterfaces set;
    set.Set(7, false);
    EXPECT_FALSE(set.Has(7));
}

TEST(MonitoredInterfaces, AreAskedWhileTheyChange) {
    net::MonitoredInterfaces set;
    set.Set(3, true);
    std::atomic<bool> stop{false};
    std::atomic<bool> sawLast{false};
    bool lost = false;
    std::thread asking([&] {
        while (!stop) {
            lost |= !set.Has(3); // never touched again, in the chain that grows
            if (set.Has(3 + 64 * 500)) {
                sawLast = true;
            }
        }
    });
    for (int i = 1; i <= 500; ++i) {
        set.Set(3 + 64 * i, true);
        set.Set(3 + 64 * (i - 1) + 1, (i & 1) != 0);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!sawLast && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(sawLast);
    stop = true;
    asking.join();
    EXPECT_FALSE(lost);
}

} // namespace
