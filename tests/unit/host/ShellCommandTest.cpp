#include "vcihost/ShellCommand.h"

#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

TEST(ShellCommand, GivesOutputAndStatus) {
    const auto good = ShellCommand::Run("echo out; echo err >&2", After(30s), Waiter());
    EXPECT_EQ(good.Failure(), "");
    EXPECT_EQ(good.output, "out\nerr\n");
    const auto bad = ShellCommand::Run("echo no; exit 3", After(30s), Waiter());
    EXPECT_EQ(bad.Failure(), "ended with status 3");
    EXPECT_EQ(bad.output, "no\n");
}

TEST(ShellCommand, ASignalIsAFailure) {
    EXPECT_EQ(ShellCommand::Run("kill -9 $$", After(30s), Waiter()).Failure(),
              "was ended by signal 9");
}

TEST(ShellCommand, HasNothingToRead) {
    EXPECT_EQ(ShellCommand::Run("cat", After(30s), Waiter()).Failure(), "");
}

TEST(ShellCommand, IsKilledWithItsChildrenAtTheDeadline) {
    const auto start = std::chrono::steady_clock::now();
    const auto late = ShellCommand::Run("echo begun; sleep 60; echo over", After(300ms), Waiter());
    EXPECT_EQ(late.Failure(), "did not end in time");
    EXPECT_EQ(late.output, "begun\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 30s);
}

TEST(ShellCommand, DoesNotWaitForWhatItLeavesBehind) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ShellCommand::Run("sleep 20 & echo left", After(30s), Waiter()).output, "left\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 15s);
}

TEST(ShellCommand, AnInterruptEndsIt) {
    const int cancel = eventfd(1, EFD_CLOEXEC);
    EXPECT_THROW(ShellCommand::Run("sleep 60", After(60s), Waiter(cancel)), Interrupted);
    close(cancel);
}

} // namespace
