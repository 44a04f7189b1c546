#include "utils/Logger.h"

#include <atomic>
#include <cstdio>
#include <limits>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr size_t kMaxLine = 1048576; // bytes

// What the output was called with. Log lines of all threads end here.
std::mutex writesMutex;
std::vector<std::string> writes;

ssize_t Collect(const char* data, size_t length) {
    const std::lock_guard lock(writesMutex);
    writes.emplace_back(data, length);
    return static_cast<ssize_t>(length);
}

ssize_t Refuse(const char*, size_t) {
    errno = EIO;
    return -1;
}

class LoggerTest : public testing::Test {
  protected:
    void SetUp() override {
        limlog::singleton()->setOutput(Collect);
        Take();
    }
    void TearDown() override { limlog::singleton()->setOutput(limlog::StdoutWriter::mywrite); }

    static std::vector<std::string> Take() {
        const std::lock_guard lock(writesMutex);
        return std::exchange(writes, {});
    }

    // The message of the one line that `write` logs without a location.
    template <typename... Values> static std::string MessageOf(const Values&... values) {
        {
            limlog::LogLine line(limlog::LogLevel::Info, limlog::LogLoc{});
            (line << ... << values);
        }
        const auto lines = Take();
        EXPECT_EQ(lines.size(), 1U);
        static const std::regex kHead("INFO \\S+ \\d+ ([^\\n]*)\\n");
        std::smatch match;
        EXPECT_TRUE(std::regex_match(lines.at(0), match, kHead)) << lines.at(0);
        return match[1];
    }
};

constexpr auto kTime = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d{3})?(Z|[+-]\d\d:\d\d))";

TEST_F(LoggerTest, StatementsBelowTheLevelEvaluateNoArgumentAndWriteNothing) {
    int evaluated = 0;
    VCI_LOG_TRACE << ++evaluated;
    VCI_LOG_DEBUG << ++evaluated;
    EXPECT_EQ(evaluated, 0);
    EXPECT_TRUE(Take().empty());
    VCI_LOG_INFO << ++evaluated;
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(Take().size(), 1U);
}

TEST_F(LoggerTest, TheLevelIsInfo) {
    EXPECT_EQ(limlog::singleton()->getLogLevel(), limlog::LogLevel::Info);
}

TEST_F(LoggerTest, ALineIsTagTimeThreadPlaceAndMessage) {
    const int line = __LINE__ + 1;
    VCI_LOG_INFO << "channel " << 3 << " is up";
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 1U);
    const std::regex expected(std::string("INFO ") + kTime + " " + std::to_string(getpid()) +
                              " tests/unit/utils/LoggerTest\\.cpp:" + std::to_string(line) +
                              " channel 3 is up\\n");
    EXPECT_TRUE(std::regex_match(lines[0], expected)) << lines[0];
}

TEST_F(LoggerTest, EachLevelHasItsTag) {
    VCI_LOG_INFO << "i";
    VCI_LOG_WARN << "w";
    VCI_LOG_ERROR << "e";
    VCI_LOG_FATAL << "f";
    { limlog::LogLine(limlog::LogLevel::Trace, {}) << "t"; }
    { limlog::LogLine(limlog::LogLevel::Debug, {}) << "d"; }
    std::string tags;
    for (const auto& line : Take()) {
        tags += line.substr(0, 5);
    }
    EXPECT_EQ(tags, "INFO WARN ERRO FATA TRAC DEBU ");
}

TEST_F(LoggerTest, AnEmptyLocationIsLeftOut) {
    { limlog::LogLine(limlog::LogLevel::Warn, {"file", "function", 0}) << "text"; }
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 1U);
    const std::regex expected(std::string("WARN ") + kTime + " " + std::to_string(getpid()) +
                              " text\\n");
    EXPECT_TRUE(std::regex_match(lines[0], expected)) << lines[0];
}

TEST_F(LoggerTest, TheFunctionIsCarriedAndNotPrinted) {
    {
        limlog::LogLine line(limlog::LogLevel::Info, LIMLOG_HERE);
        EXPECT_STREQ(line.loc().function_, "TestBody");
    }
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].find("TestBody"), std::string::npos);
}

TEST_F(LoggerTest, AnEmptyMessageStillWritesALine) {
    VCI_LOG_INFO;
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].substr(lines[0].size() - 2), " \n");
}

TEST_F(LoggerTest, OneLineIsOneWrite) {
    VCI_LOG_INFO << "a" << 1 << 'b' << 2.5 << std::string("c");
    VCI_LOG_INFO << "second";
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(lines[0].rfind(' ')), " a1b2.5c\n");
    EXPECT_EQ(lines[1].substr(lines[1].rfind(' ')), " second\n");
}

TEST_F(LoggerTest, StatementFitsBehindAnIfWithoutBraces) {
    for (const bool up : {true, false})
        if (up)
            VCI_LOG_INFO << "up";
        else
            VCI_LOG_WARN << "down";
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(0, 4), "INFO");
    EXPECT_EQ(lines[1].substr(0, 4), "WARN");
}

TEST_F(LoggerTest, IntegersOfEveryType) {
    EXPECT_EQ(MessageOf(int8_t{-128}, ' ', uint8_t{255}), "-128 255");
    EXPECT_EQ(MessageOf(int16_t{-32768}, ' ', uint16_t{65535}), "-32768 65535");
    EXPECT_EQ(MessageOf(std::numeric_limits<int>::min(), ' ', 4294967295U),
              "-2147483648 4294967295");
    EXPECT_EQ(MessageOf(std::numeric_limits<long>::min(), ' ', std::numeric_limits<long>::max()),
              "-9223372036854775808 9223372036854775807");
    EXPECT_EQ(MessageOf(std::numeric_limits<long long>::min(), ' ',
                        std::numeric_limits<unsigned long long>::max()),
              "-9223372036854775808 18446744073709551615");
    EXPECT_EQ(MessageOf(0, ' ', -1, ' ', 100), "0 -1 100");
}

TEST_F(LoggerTest, TextsAndCharacters) {
    EXPECT_EQ(MessageOf('x', "chars", std::string(" and "), std::string_view("string")),
              "xchars and string");
    EXPECT_EQ(MessageOf(std::string("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(MessageOf(static_cast<const char*>(nullptr)), "(null)");
}

TEST_F(LoggerTest, BoolIsAWord) {
    EXPECT_EQ(MessageOf(true, ' ', false), "true false");
}

TEST_F(LoggerTest, FloatingPointIsTheShortestTextThatReadsBack) {
    EXPECT_EQ(MessageOf(0.1, ' ', 0.1F, ' ', 1.0, ' ', -2.5), "0.1 0.1 1 -2.5");
    EXPECT_EQ(MessageOf(1e300, ' ', -2.2250738585072014e-308), "1e+300 -2.2250738585072014e-308");
    EXPECT_EQ(MessageOf(std::numeric_limits<double>::infinity()), "inf");
}

TEST_F(LoggerTest, ALocationIsFileAndLine) {
    EXPECT_EQ(MessageOf(limlog::LogLoc{"src/a.cpp", "f", 12}), "src/a.cpp:12");
    EXPECT_EQ(MessageOf(limlog::LogLoc{}), "");
}

TEST_F(LoggerTest, ASecondThreadShowsItsIdAndItsFirstLineMakesItsLogger) {
    VCI_LOG_INFO << "main";
    Take();
    const size_t before = limlog::singleton()->loggerCount();
    size_t silent = 0;
    size_t logged = 0;
    pid_t id = 0;
    std::thread([&] {
        silent = limlog::singleton()->loggerCount();
        VCI_LOG_INFO << "first";
        VCI_LOG_INFO << "second";
        logged = limlog::singleton()->loggerCount();
        id = limlog::gettid();
    }).join();
    EXPECT_EQ(silent, before);
    EXPECT_EQ(logged, before + 1);
    EXPECT_NE(id, getpid());

    const auto lines = Take();
    ASSERT_EQ(lines.size(), 2U);
    const std::regex expected(std::string("INFO ") + kTime + " " + std::to_string(id) +
                              " \\S+ (first|second)\\n");
    EXPECT_TRUE(std::regex_match(lines[0], expected)) << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], expected)) << lines[1];
}

TEST_F(LoggerTest, LinesOfSeveralThreadsStayWhole) {
    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                VCI_LOG_INFO << "thread" << t << "line" << i << "end";
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const auto lines = Take();
    ASSERT_EQ(lines.size(), size_t{kThreads} * kLines);
    std::vector<int> next(kThreads, 0);
    for (const auto& line : lines) {
        int t = -1;
        int i = -1;
        ASSERT_EQ(sscanf(line.c_str() + line.rfind(' '), " thread%dline%dend", &t, &i), 2) << line;
        ASSERT_EQ(i, next.at(static_cast<size_t>(t))++);
        ASSERT_EQ(line.back(), '\n');
    }
}

TEST_F(LoggerTest, ALineThatJustFillsTheBufferIsWhole) {
    std::string line;
    size_t head = 0;
    do { // once more if the head changed its length, which it does at a whole second
        { limlog::LogLine(limlog::LogLevel::Info, {}) << "<"; }
        head = Take().at(0).find('<');
        {
            limlog::LogLine(limlog::LogLevel::Info, {})
                << "<" << std::string(kMaxLine - head - 3, 'a') << ">";
        }
        line = Take().at(0);
    } while (line.find('<') != head);
    EXPECT_EQ(line.size(), kMaxLine);
    EXPECT_EQ(line.substr(kMaxLine - 3), "a>\n");
}

TEST_F(LoggerTest, ALineBeyondTheBufferIsCutBeforeItsLineFeed) {
    VCI_LOG_INFO << "head " << std::string(2 * kMaxLine, 'a') << "dropped" << 5;
    VCI_LOG_INFO << "the next line";
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].size(), kMaxLine);
    EXPECT_NE(lines[0].find(" head aaaa"), std::string::npos);
    EXPECT_EQ(lines[0].substr(kMaxLine - 3), "aa\n");
    EXPECT_EQ(lines[1].substr(lines[1].find("the")), "the next line\n");
}

TEST_F(LoggerTest, ALineThatGrowsBeyondTheBufferPieceByPieceIsCut) {
    {
        limlog::LogLine line(limlog::LogLevel::Info, {});
        const std::string piece(1000, 'b');
        for (int i = 0; i < 1100; ++i) {
            line << piece;
        }
    }
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].size(), kMaxLine);
    EXPECT_EQ(lines[0].substr(kMaxLine - 3), "bb\n");
}

int LogAndReturn(int value) {
    VCI_LOG_WARN << "inner";
    return value;
}

TEST_F(LoggerTest, AnArgumentThatLogsWritesItsOwnLineFirst) {
    VCI_LOG_INFO << "outer " << LogAndReturn(5) << " end";
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].substr(0, 5), "WARN ");
    EXPECT_EQ(lines[0].substr(lines[0].rfind(' ')), " inner\n");
    EXPECT_EQ(lines[1].substr(0, 5), "INFO ");
    EXPECT_EQ(lines[1].substr(lines[1].find("outer")), "outer 5 end\n");
}

// The outer line has left room for one line feed. The inner line takes it for its own, which is all
// that remains of it, and gives it back.
TEST_F(LoggerTest, AnArgumentThatLogsInsideAFullLineKeepsBothLineFeeds) {
    VCI_LOG_INFO << std::string(2 * kMaxLine, 'a') << LogAndReturn(5);
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "\n");
    EXPECT_EQ(lines[1].size(), kMaxLine);
    EXPECT_EQ(lines[1].back(), '\n');
}

// Logs a line of its own before it collects the first one that it gets.
ssize_t LogAndCollect(const char* data, size_t length) {
    limlog::singleton()->setOutput(Collect);
    limlog::LogLine(limlog::LogLevel::Error, {}) << "from the output";
    return Collect(data, length);
}

TEST_F(LoggerTest, AnOutputThatLogsWhileAnOuterLineIsOpenLosesNothingOfIt) {
    limlog::singleton()->setOutput(LogAndCollect);
    VCI_LOG_INFO << "outer " << LogAndReturn(5) << " end";
    VCI_LOG_INFO << "next";
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].substr(0, 5), "ERRO ");
    EXPECT_EQ(lines[0].substr(lines[0].find("from")), "from the output\n");
    EXPECT_EQ(lines[1].substr(0, 5), "WARN ");
    EXPECT_EQ(lines[1].substr(lines[1].rfind(' ')), " inner\n");
    EXPECT_EQ(lines[2].substr(0, 5), "INFO ");
    EXPECT_EQ(lines[2].substr(lines[2].find("outer")), "outer 5 end\n");
    EXPECT_EQ(lines[3].substr(0, 5), "INFO ");
    EXPECT_EQ(lines[3].substr(lines[3].find("next")), "next\n");
}

TEST_F(LoggerTest, AFailedWriteIsIgnoredAndErrnoStays) {
    limlog::singleton()->setOutput(Refuse);
    errno = ENOENT;
    VCI_LOG_ERROR << "lost";
    EXPECT_EQ(errno, ENOENT);
    limlog::singleton()->setOutput(Collect);
    VCI_LOG_ERROR << "kept";
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].substr(lines[0].rfind(' ')), " kept\n");
}

TEST_F(LoggerTest, SetOutputReachesThreadsThatHaveLoggedBefore) {
    limlog::singleton()->setOutput(Refuse);
    std::mutex turn;
    turn.lock();
    std::atomic<bool> logged = false;
    std::thread thread([&] {
        VCI_LOG_INFO << "lost";
        logged = true;
        logged.notify_one();
        const std::lock_guard lock(turn);
        VCI_LOG_INFO << "kept";
    });
    logged.wait(false);
    limlog::singleton()->setOutput(Collect);
    turn.unlock();
    thread.join();
    const auto lines = Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].substr(lines[0].rfind(' ')), " kept\n");
}

} // namespace
