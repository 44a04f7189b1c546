#include "base/ZephChannel.h"

#include "base/LoopTest.h"
#include "base/ZephEpollPoller.h"

#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <sys/epoll.h>

namespace {

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }
    UniqueFd reader;
    UniqueFd writer;
};

class ZephChannelTest : public testing::Test {
  protected:
    // Notes every callback in `log`.
    void LogAll(ZephChannel& channel) {
        channel.setReadCallback([this](ZephTimestamp) { log += "read "; });
        channel.setWriteCallback([this] { log += "write "; });
        channel.setCloseCallback([this] { log += "close "; });
        channel.setErrorCallback([this] { log += "error "; });
    }

    std::string Handle(ZephChannel& channel, int revents) {
        log.clear();
        channel.set_revents(revents);
        channel.handleEvent(ZephTimestamp(1));
        return log;
    }

    // One poll of `poller` that does not wait: what it returns is handled.
    std::string PollOnce(ZephEpollPoller& poller) {
        log.clear();
        std::vector<ZephChannel*> active;
        poller.poll(0, &active);
        for (ZephChannel* channel : active) {
            channel->handleEvent(ZephTimestamp(1));
        }
        return log;
    }

    ZephEventLoop loop;
    std::string log;
};

TEST_F(ZephChannelTest, OneEventRunsUpToFourCallbacksInTheirOrder) {
    ZephChannel channel(&loop, -1);
    LogAll(channel);
    EXPECT_EQ(Handle(channel, EPOLLHUP | EPOLLERR | EPOLLPRI | EPOLLOUT),
              "close error read write ");
}

TEST_F(ZephChannelTest, EachBitRunsItsOwnCallback) {
    ZephChannel channel(&loop, -1);
    LogAll(channel);
    EXPECT_EQ(Handle(channel, 0), "");
    EXPECT_EQ(Handle(channel, 1), "read ");
    EXPECT_EQ(Handle(channel, 2), "read ");
    EXPECT_EQ(Handle(channel, 4), "write ");
    EXPECT_EQ(Handle(channel, 8), "error ");
    EXPECT_EQ(Handle(channel, 16), "close ");
    EXPECT_EQ(Handle(channel, 0x2000), "read ");
    EXPECT_EQ(Handle(channel, 16 | 1), "read ");
}

TEST_F(ZephChannelTest, CallbacksThatAreNotSetAreSkipped) {
    ZephChannel channel(&loop, -1);
    channel.setWriteCallback([this] { log += "write "; });
    EXPECT_EQ(Handle(channel, EPOLLHUP | EPOLLERR | EPOLLPRI | EPOLLOUT), "write ");
}

TEST_F(ZephChannelTest, ReadCallbackGetsTheTimeOfThePoll) {
    ZephChannel channel(&loop, -1);
    ZephTimestamp received;
    channel.setReadCallback([&](ZephTimestamp time) { received = time; });
    channel.set_revents(EPOLLIN);
    channel.handleEvent(ZephTimestamp(1234));
    EXPECT_EQ(received.microSecondsSinceEpoch(), 1234);
}

TEST_F(ZephChannelTest, EnablingAndDisablingKeepsTheWantedMask) {
    const UniqueFd fd = ReadableFd();
    ZephChannel channel(&loop, fd.get());
    EXPECT_TRUE(channel.isNoneEvent());
    channel.enableReading();
    EXPECT_EQ(channel.events(), 3);
    EXPECT_TRUE(channel.isReading());
    EXPECT_FALSE(channel.isWriting());
    channel.enableWriting();
    EXPECT_EQ(channel.events(), 7);
    EXPECT_TRUE(channel.isWriting());
    channel.disableReading();
    EXPECT_EQ(channel.events(), 4);
    EXPECT_FALSE(channel.isReading());
    channel.enableReading();
    channel.disableWriting();
    EXPECT_EQ(channel.events(), 3);
    channel.disableAll();
    EXPECT_EQ(channel.events(), 0);
    EXPECT_TRUE(channel.isNoneEvent());
    channel.remove();
    EXPECT_EQ(channel.ownerLoop(), &loop);
    EXPECT_EQ(channel.fd(), fd.get());
}

TEST_F(ZephChannelTest, HangUpWithDataLeftReadsAndDoesNotClose) {
    Pipe pipe;
    ZephChannel channel(&loop, pipe.reader.get());
    LogAll(channel);
    ZephEpollPoller poller(&loop);
    channel.enableReading();
    channel.remove(); // the mask is set; now onto a poller of our own
    channel.enableReading();
    loop.removeChannel(&channel);
    poller.updateChannel(&channel);

    ASSERT_EQ(write(pipe.writer.get(), "x", 1), 1);
    pipe.writer.reset();
    EXPECT_EQ(PollOnce(poller), "read ");
    char byte = 0;
    ASSERT_EQ(read(pipe.reader.get(), &byte, 1), 1);
    EXPECT_EQ(PollOnce(poller), "close ");
    poller.removeChannel(&channel);
}

TEST_F(ZephChannelTest, TiedOwnerThatIsGoneGetsNoCallback) {
    ZephChannel channel(&loop, -1);
    LogAll(channel);
    auto owner = std::make_shared<int>(0);
    channel.tie(owner);
    EXPECT_EQ(Handle(channel, EPOLLIN), "read ");
    owner.reset();
    EXPECT_EQ(Handle(channel, EPOLLIN | EPOLLERR | EPOLLOUT), "");
}

TEST_F(ZephChannelTest, TiedOwnerIsHeldUntilAllCallbacksHaveRun) {
    struct Owner {
        explicit Owner(ZephEventLoop* loop) : channel(loop, -1) {}
        ZephChannel channel;
    };
    auto owner = std::make_shared<Owner>(&loop);
    const std::weak_ptr<Owner> watch = owner;
    ZephChannel* channel = &owner->channel;
    channel->tie(owner);
    channel->setReadCallback([&](ZephTimestamp) { owner.reset(); });
    channel->setWriteCallback([&] { log += watch.expired() ? "gone " : "alive "; });
    EXPECT_EQ(Handle(*channel, EPOLLIN | EPOLLOUT), "alive ");
    EXPECT_TRUE(watch.expired());
}

TEST_F(ZephChannelTest, DisableAllTakesTheDescriptorOutOfEpollAndEnablingPutsItBack) {
    Pipe pipe;
    pipe.writer.reset(); // hung up: epoll reports that even for an empty mask
    ZephChannel channel(&loop, pipe.reader.get());
    LogAll(channel);
    channel.setCloseCallback([this] {
        log += "close ";
        loop.quit();
    });
    EXPECT_EQ(channel.index(), -1);
    channel.enableReading();
    EXPECT_EQ(channel.index(), 1);
    channel.disableAll();
    EXPECT_EQ(channel.index(), 2);
    EXPECT_TRUE(loop.hasChannel(&channel));
    RunPending(loop);
    EXPECT_EQ(log, "");
    channel.enableReading();
    EXPECT_EQ(channel.index(), 1);
    RunUntilQuit(loop);
    EXPECT_EQ(log, "close ");
    channel.remove();
    EXPECT_EQ(channel.index(), -1);
    EXPECT_FALSE(loop.hasChannel(&channel));
}

TEST_F(ZephChannelTest, RemovingAChannelThatWasNeverEnabledDoesNothing) {
    const UniqueFd fd = ReadableFd();
    ZephChannel entered(&loop, fd.get());
    entered.enableReading();
    ZephChannel never(&loop, fd.get());
    never.remove();
    EXPECT_TRUE(loop.hasChannel(&entered));
    EXPECT_FALSE(loop.hasChannel(&never));
    entered.remove();
    entered.remove(); // and removing it again does nothing either
    EXPECT_FALSE(loop.hasChannel(&entered));
}

TEST_F(ZephChannelTest, RemovedChannelCanBeEnabledAgain) {
    const UniqueFd fd = ReadableFd();
    ZephChannel channel(&loop, fd.get());
    channel.enableReading();
    channel.remove();
    channel.setReadCallback([this](ZephTimestamp) { loop.quit(); });
    channel.enableReading();
    RunUntilQuit(loop);
    channel.remove();
}

TEST_F(ZephChannelTest, DescriptorThatEpollRefusesNeverFires) {
    ZephChannel channel(&loop, -1);
    LogAll(channel);
    channel.enableReading();
    EXPECT_TRUE(loop.hasChannel(&channel));
    RunPending(loop);
    EXPECT_EQ(log, "");
    channel.remove();
    EXPECT_FALSE(loop.hasChannel(&channel));
}

TEST_F(ZephChannelTest, PollThatFillsTheArrayDoublesIt) {
    constexpr size_t kChannels = 200;
    std::vector<UniqueFd> fds;
    std::vector<std::unique_ptr<ZephChannel>> channels;
    ZephEpollPoller poller(&loop);
    for (size_t i = 0; i < kChannels; ++i) {
        fds.push_back(ReadableFd());
        channels.push_back(std::make_unique<ZephChannel>(&loop, fds.back().get()));
        channels.back()->enableReading();
        loop.removeChannel(channels.back().get());
        poller.updateChannel(channels.back().get());
    }
    std::vector<size_t> counts;
    for (int i = 0; i < 6; ++i) {
        std::vector<ZephChannel*> active;
        poller.poll(0, &active);
        counts.push_back(active.size());
    }
    EXPECT_EQ(counts, (std::vector<size_t>{16, 32, 64, 128, 200, 200}));
    for (const auto& channel : channels) {
        poller.removeChannel(channel.get());
    }
    std::vector<ZephChannel*> active;
    poller.poll(0, &active);
    EXPECT_TRUE(active.empty());
}

TEST_F(ZephChannelTest, BoundedPollEndsWithNothingReadyTimeAndAgain) {
    using std::chrono::steady_clock;
    ZephEpollPoller poller(&loop);
    std::vector<ZephChannel*> active;
    const auto start = steady_clock::now();
    poller.poll(30, &active);
    EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(29));
    poller.poll(30, &active);
    poller.poll(10, &active);
    EXPECT_LT(steady_clock::now() - start, kDeadline);
    EXPECT_TRUE(active.empty());
}

TEST_F(ZephChannelTest, PollThatFailsReturnsTheTimeAndNoChannelAndKeepsErrno) {
    const int next = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    close(next); // the number of the next descriptor
    ZephEpollPoller poller(&loop);
    const UniqueFd noEpoll = ReadableFd();
    ASSERT_EQ(dup3(noEpoll.get(), next, O_CLOEXEC), next);
    std::vector<ZephChannel*> active;
    const ZephTimestamp before = ZephTimestamp::now();
    errno = 0;
    const ZephTimestamp returned = poller.poll(0, &active);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(returned < before);
    EXPECT_TRUE(active.empty());
}

} // namespace
