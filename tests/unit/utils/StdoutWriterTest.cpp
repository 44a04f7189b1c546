#include "utils/StdoutWriter.h"

#include "utils/TempDir.h"
#include "utils/UniqueFd.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

// A file stands in for the console.
class StdoutWriterTest : public testing::Test {
  protected:
    ~StdoutWriterTest() override { const UniqueFd last(fd_); }

    ssize_t Write(const std::string& text) {
        return limlog::StdoutWriter::writeTo(console_.c_str(), fd_, text.data(), text.size());
    }
    std::string Read() const { return dir_.Read("console"); }

    const TempDir dir_;
    const std::string console_ = dir_ / "console";
    std::atomic<int> fd_ = -1;
};

TEST_F(StdoutWriterTest, WritesJustTheBytesItIsGivenAndReturnsTheirCount) {
    dir_.Write("console", "");
    EXPECT_EQ(limlog::StdoutWriter::writeTo(console_.c_str(), fd_, "a\0b and more", 3), 3);
    EXPECT_EQ(Read(), std::string("a\0b", 3));
}

TEST_F(StdoutWriterTest, OpensTheConsoleOnceAndKeepsIt) {
    dir_.Write("console", "");
    EXPECT_EQ(Write("one"), 3);
    const int opened = fd_;
    fs::rename(console_, dir_ / "first");
    dir_.Write("console", "");
    EXPECT_EQ(Write("two"), 3);
    EXPECT_EQ(fd_, opened);
    EXPECT_EQ(dir_.Read("first"), "onetwo");
    EXPECT_EQ(Read(), "");
}

TEST_F(StdoutWriterTest, AMissingConsoleIsAFailedWriteAndTriedAgainAtTheNext) {
    errno = 0;
    EXPECT_EQ(Write("lost"), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(Write("lost"), -1);
    EXPECT_FALSE(fs::exists(console_));
    dir_.Write("console", "");
    EXPECT_EQ(Write("kept"), 4);
    EXPECT_EQ(Read(), "kept");
}

TEST_F(StdoutWriterTest, OpensForReadingAndForWritingAtTheEndAndNotForChildPrograms) {
    dir_.Write("console", "before ");
    Write("line");
    EXPECT_EQ(Read(), "before line");
    EXPECT_EQ(fcntl(fd_, F_GETFL) & (O_ACCMODE | O_APPEND), O_RDWR | O_APPEND);
    EXPECT_EQ(fcntl(fd_, F_GETFD), FD_CLOEXEC);
}

TEST_F(StdoutWriterTest, ReturnsWhatAFailedWriteReturns) {
    errno = 0;
    EXPECT_EQ(limlog::StdoutWriter::writeTo("/dev/full", fd_, "line\n", 5), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(StdoutWriterTest, ReturnsTheCountOfAPartialWrite) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    const UniqueFd reader(ends[0]);
    fd_ = ends[1];
    const int room = fcntl(ends[1], F_GETPIPE_SZ);
    ASSERT_GT(room, 0);
    EXPECT_EQ(Write(std::string(static_cast<size_t>(room) + 1, 'a')), room);
}

TEST_F(StdoutWriterTest, ThreadsThatAreFirstTogetherOpenOneDescriptor) {
    const auto openDescriptors = [] {
        const fs::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    dir_.Write("console", "");
    const auto before = openDescriptors();
    constexpr int kThreads = 8;
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            EXPECT_EQ(Write("line"), 4);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_EQ(Read().size(), 4U * kThreads);
}

// The one test of the real console, which the build machine may not have.
TEST(StdoutWriter, WritesToTheSerialConsole) {
    const bool hasConsole = access("/dev/ttyPS0", R_OK | W_OK) == 0;
    EXPECT_EQ(limlog::StdoutWriter::mywrite("", 0), hasConsole ? 0 : -1);
}

} // namespace
