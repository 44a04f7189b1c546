// Which descriptors are closed when, while other threads write.

#include "net/SocketWriters.h"

#include "utils/UniqueFd.h"

#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using Inside = SocketWriters::Inside;

int OpenAny() {
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    return fd;
}

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(SocketWritersTest, WithNobodyInsideADescriptorIsClosedAtOnce) {
    SocketWriters writers;
    { const Inside over(writers); }
    const int fd = OpenAny();
    writers.Close(fd);
    EXPECT_FALSE(IsOpen(fd));
}

TEST(SocketWritersTest, AWriterThatLeavesInTimeIsWaitedFor) {
    SocketWriters writers;
    bool closed = false;
    for (int tries = 20; tries > 0 && !closed; --tries) { // this machine may hold up the writer
        std::optional<Inside> inside(std::in_place, writers);
        const int fd = OpenAny();
        std::thread writer([&inside] {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            inside.reset();
        });
        writers.Close(fd);
        closed = !IsOpen(fd);
        writer.join();
    }
    EXPECT_TRUE(closed);
}

TEST(SocketWritersTest, AWriterInsideKeepsItOpenUntilTheNextClose) {
    SocketWriters writers;
    const int fd = OpenAny();
    {
        const Inside inside(writers);
        const auto begin = std::chrono::steady_clock::now();
        writers.Close(fd);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(10));
        EXPECT_TRUE(IsOpen(fd));
    }
    EXPECT_TRUE(IsOpen(fd));
    const int next = OpenAny();
    EXPECT_NE(next, fd);
    writers.Close(next);
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_FALSE(IsOpen(next));
}

TEST(SocketWritersTest, AWriterInsideKeepsSeveralOpen) {
    SocketWriters writers;
    std::vector<int> fds;
    {
        const Inside inside(writers);
        const Inside another(writers);
        for (int i = 0; i < 3; ++i) {
            fds.push_back(OpenAny());
            writers.Close(fds.back());
        }
    }
    for (const int fd : fds) {
        EXPECT_TRUE(IsOpen(fd));
    }
    fds.push_back(OpenAny());
    writers.Close(fds.back());
    for (const int fd : fds) {
        EXPECT_FALSE(IsOpen(fd));
    }
}

TEST(SocketWritersTest, WhatIsLeftIsClosedInTheEnd) {
    std::array<int, 2> fds{};
    {
        SocketWriters writers;
        const Inside inside(writers);
        for (int& fd : fds) {
            fd = OpenAny();
            writers.Close(fd);
        }
        EXPECT_TRUE(IsOpen(fds[0]));
        EXPECT_TRUE(IsOpen(fds[1]));
    }
    EXPECT_FALSE(IsOpen(fds[0]));
    EXPECT_FALSE(IsOpen(fds[1]));
}

// Also for ThreadSanitizer: two threads write while a third closes and opens, and gives each number
// that is free again to a file of its own.
TEST(SocketWritersTest, NoByteLandsInAnothersFile) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
    const UniqueFd reader(ends[0]);
    const UniqueFd foreign(ends[1]);
    SocketWriters writers;
    std::atomic<int> current{OpenAny()};
    std::atomic<bool> done{false};
    std::atomic<size_t> written{0};
    std::atomic<size_t> failed{0};
    const auto write = [&] {
        while (!done) {
            {
                const Inside inside(writers);
                const int fd = current;
                std::this_thread::yield();
                (::write(fd, "x", 1) == 1 ? written : failed) += 1;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    };
    std::thread first(write);
    std::thread second(write);
    size_t landed = 0;
    for (int i = 0; i < 400; ++i) {
        const int closing = current.exchange(OpenAny());
        writers.Close(closing);
        // The lowest number from there on: this one, unless a writer has kept it.
        const UniqueFd another(fcntl(foreign.get(), F_DUPFD_CLOEXEC, closing));
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        char byte = 0;
        while (read(reader.get(), &byte, 1) == 1) {
            ++landed;
        }
    }
    done = true;
    first.join();
    second.join();
    writers.Close(current);
    EXPECT_EQ(landed, 0U);
    EXPECT_EQ(failed, 0U); // whoever is inside finds his descriptor open
    EXPECT_GT(written, 0U);
}

} // namespace
