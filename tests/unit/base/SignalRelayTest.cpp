#include "base/SignalRelay.h"

#include <csignal>
#include <thread>
#include <vector>

#include <poll.h>

#include <gtest/gtest.h>

namespace {

class SignalRelayTest : public testing::Test {
  protected:
    SignalRelayTest() {
        relay.SetAction([this](int signal) {
            taken.push_back(signal);
            return signal == SIGTERM;
        });
    }

    ~SignalRelayTest() override {
        relay.Dispatch();
        relay.SetAction(nullptr);
    }

    bool Readable() const {
        pollfd wakeup{relay.Fd(), POLLIN, 0};
        return poll(&wakeup, 1, 0) == 1;
    }

    SignalRelay& relay = SignalRelay::GetInstance();
    std::vector<int> taken;
};

TEST_F(SignalRelayTest, IsReadableExactlyWhileSignalsWait) {
    EXPECT_FALSE(Readable());
    relay.Post(SIGUSR2);
    EXPECT_TRUE(Readable());
    EXPECT_FALSE(relay.Dispatch());
    EXPECT_FALSE(Readable());
    EXPECT_EQ(taken, std::vector<int>{SIGUSR2});
}

TEST_F(SignalRelayTest, DispatchTellsWhenOneOfThemAsksForTheEnd) {
    relay.Post(SIGTERM);
    relay.Post(SIGUSR1);
    EXPECT_TRUE(relay.Dispatch());
    EXPECT_EQ(taken, (std::vector<int>{SIGUSR1, SIGTERM}));
    EXPECT_FALSE(relay.Dispatch());
}

TEST_F(SignalRelayTest, ASignalPostedAgainBeforeItIsTakenCountsOnce) {
    for (int i = 0; i < 1000; ++i) {
        relay.Post(SIGTERM);
    }
    EXPECT_TRUE(relay.Dispatch());
    EXPECT_EQ(taken, std::vector<int>{SIGTERM});
}

TEST_F(SignalRelayTest, PostsFromARealHandlerAndKeepsErrno) {
    const auto previous =
        signal(SIGUSR2, [](int number) { SignalRelay::GetInstance().Post(number); });
    errno = 77;
    raise(SIGUSR2);
    EXPECT_EQ(errno, 77);
    signal(SIGUSR2, previous);
    relay.Dispatch();
    EXPECT_EQ(taken, std::vector<int>{SIGUSR2});
}

TEST_F(SignalRelayTest, NoSignalOfManyThreadsIsLost) {
    std::vector<std::thread> posters;
    for (const int number : {SIGUSR1, SIGUSR2, SIGTERM, 31}) {
        posters.emplace_back([this, number] { relay.Post(number); });
    }
    for (auto& poster : posters) {
        poster.join();
    }
    relay.Dispatch();
    EXPECT_EQ(taken, (std::vector<int>{SIGUSR1, SIGUSR2, SIGTERM, 31}));
}

} // namespace
