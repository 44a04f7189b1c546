#include "utils/Logger.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

namespace {

// Goes behind the process's logger, since it is older; does then what a test has told it.
struct AtExit {
    ~AtExit() {
        if (action != nullptr) {
            action();
        }
    }
    void (*action)() = nullptr;
} atExit;

ssize_t WriteToStderr(const char* data, size_t length) {
    return write(2, data, length);
}

TEST(LoggerEndDeathTest, AStatementBehindTheEndOfTheLoggerWritesNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            limlog::singleton()->setOutput(WriteToStderr);
            atExit.action = [] {
                VCI_LOG_FATAL << "too late";
                fprintf(stderr, "%s\n", limlog::singleton()->ended() ? "quiet" : "still logging");
            };
            VCI_LOG_INFO << "in time";
            exit(0);
        },
        testing::ExitedWithCode(0), "in time\nquiet");
}

std::atomic<bool> lineBegun = false;
std::atomic<bool> lineMayEnd = false;
std::atomic<bool> lineWritten = false;

void Set(std::atomic<bool>& flag) {
    flag = true;
    flag.notify_all();
}

const char* WaitInTheMiddleOfALine() {
    Set(lineBegun);
    lineMayEnd.wait(false);
    return "whole";
}

TEST(LoggerEndDeathTest, ALineThatAThreadHasBegunOutlivesTheEndOfTheLogger) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            limlog::singleton()->setOutput(WriteToStderr);
            atExit.action = [] {
                Set(lineMayEnd);
                lineWritten.wait(false);
            };
            std::thread([] {
                VCI_LOG_INFO << "begun and " << WaitInTheMiddleOfALine();
                Set(lineWritten);
            }).detach();
            lineBegun.wait(false);
            exit(0);
        },
        testing::ExitedWithCode(0), "begun and whole\n");
}

} // namespace
