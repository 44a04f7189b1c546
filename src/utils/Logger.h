#pragma once

#include "utils/LogFormat.h"
#include "utils/StdoutWriter.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

// One line of text to the serial console for each log statement:
//
//   VCI_LOG_INFO << "channel " << channel << " is up";
//   INFO 2025-10-23T08:15:30.123Z 1204 src/app/VciManage.cpp:88 channel 3 is up
//
// A statement below the level evaluates none of its arguments. Logging reports no error and leaves
// errno as it was. The first line of a thread takes a lock and allocates the thread's buffer. Later
// lines do not allocate and take no lock of this logger's; one line of a thread in a quarter of an
// hour asks the C library for the offset from UTC, for which the library takes a lock of its own.
//
// That is why the child of a fork may log only if its parent had one thread: in the child of
// others, either lock may be held for ever by a thread that is not there. Between fork and exec of
// a process with threads, no log statement is to be made.
namespace limlog {

enum class LogLevel : uint8_t {
    Trace,
    Debug,
    Info,
    Warn,
    Error,
    Fatal,
};

// Takes one whole line of `length` bytes, line feed included; called on the thread that logs.
using OutputFunc = ssize_t (*)(const char* data, size_t length);

// The kernel's id of the calling thread.
inline pid_t gettid() {
    static thread_local const pid_t id = static_cast<pid_t>(syscall(SYS_gettid));
    return id;
}

// The text of the line that a thread is building. Behind each line the positions are back at 0, so
// a line lies in one piece and goes out in one write. Bound to its owner's thread.
//
// Its names are those of a ring between a producer and a consumer, which here are one thread: text
// is produced up to producePos_, and the output consumes the line from consumePos_ to
// consumablePos_. Nothing blocks: what does not fit is cut.
class BlockingBuffer {
  public:
    static constexpr uint32_t kSize = 1024 * 1024;

    // Appends `n` bytes, or as many of them as there is room for; returns how many.
    size_t produce(const char* from, size_t n) {
        const size_t taken = std::min<size_t>(n, room());
        std::memcpy(storage_ + producePos_, from, taken);
        producePos_ += static_cast<uint32_t>(taken);
        return taken;
    }

    uint32_t room() const { return kSize - producePos_; }

    // Hands the last `count` bytes that were produced to `output` and takes them off. What lies
    // before them is the start of an outer line, when an argument of a log statement logs itself.
    void flush(size_t count, OutputFunc output) {
        const uint32_t start = producePos_ - static_cast<uint32_t>(count);
        consumePos_ = start;
        consumablePos_ = producePos_;
        output(storage_ + consumePos_, consumablePos_ - consumePos_);
        producePos_ = start; // consumePos_ is no longer that when the output has logged a line
        consumePos_ = 0;
        consumablePos_ = 0;
    }

  private:
    uint32_t producePos_ = 0;
    uint32_t consumePos_ = 0;
    uint32_t consumablePos_ = 0;
    char storage_[kSize]; // left as it comes, so that only pages with text cost memory
};

// What one thread logs with. Made on that thread and used by it alone, but for setOutput.
class SyncLogger {
  public:
    explicit SyncLogger(OutputFunc output) : output_(output) {}

    size_t produce(const char* data, size_t n) { return buffer_.produce(data, n); }
    uint32_t room() const { return buffer_.room(); }
    void flush(size_t count) { buffer_.flush(count, output_.load(std::memory_order_acquire)); }

    // Any thread; the next line goes there.
    void setOutput(OutputFunc output) { output_.store(output, std::memory_order_release); }

  private:
    std::atomic<OutputFunc> output_;
    BlockingBuffer buffer_;
};

// The logger of the process: the level, the output, and a `Logger` for each thread that ever
// logged. One instance, see singleton(). Safe from any thread.
template <typename Logger> class LimLog {
  public:
    LimLog() = default;
    LimLog(const LimLog&) = delete;
    LimLog& operator=(const LimLog&) = delete;

    // At process exit: deletes the loggers, except those of threads that still run and may be in
    // the middle of a line; such a thread deletes its own when it ends. Statements that follow, in
    // destructors of other static objects, write nothing.
    ~LimLog() {
        const std::lock_guard lock(loggerMutex_);
        ended_.store(true, std::memory_order_release);
        loggers_.clear();
    }

    LogLevel getLogLevel() const { return level_; }

    // Replaces the output, also that of threads that have logged before. A line that is just being
    // written may still go to the old one.
    void setOutput(OutputFunc output) {
        const std::lock_guard lock(loggerMutex_);
        output_ = output;
        for (const auto& logger : loggers_) {
            logger->setOutput(output);
        }
    }

    // The calling thread's logger, made at its first call; null once the process is ending.
    Logger* logger() {
        static thread_local constinit Logger* mine = nullptr;
        if (ended()) {
            return nullptr;
        }
        if (mine == nullptr) {
            mine = addLogger();
        }
        return mine;
    }

    // How many threads have logged so far.
    size_t loggerCount() {
        const std::lock_guard lock(loggerMutex_);
        return loggers_.size();
    }

    // True behind the destructor: may be called at any time.
    static bool ended() { return ended_.load(std::memory_order_acquire); }

  private:
    Logger* addLogger() {
        static thread_local std::shared_ptr<Logger> threadsShare;
        const std::lock_guard lock(loggerMutex_);
        if (ended()) { // while this thread waited for the lock
            return nullptr;
        }
        threadsShare = std::make_shared<Logger>(output_);
        loggers_.push_back(threadsShare);
        return threadsShare.get();
    }

    static constinit inline std::atomic<bool> ended_ = false;

    const LogLevel level_ = LogLevel::Info;
    OutputFunc output_ = StdoutWriter::mywrite;
    std::mutex loggerMutex_;
    std::vector<std::shared_ptr<Logger>> loggers_; // of all threads, also of those that are over
};

inline LimLog<SyncLogger>* singleton() {
    static LimLog<SyncLogger> instance;
    return &instance;
}

// True when a statement of `level` writes a line.
inline bool isOn(LogLevel level) {
    return !LimLog<SyncLogger>::ended() && singleton()->getLogLevel() <= level;
}

// Where a log statement stands; empty when the line is 0. The texts are not owned. A line shows the
// file and the line number; the function is only carried.
struct LogLoc {
    bool isEmpty() const { return line_ == 0; }

    const char* file_ = "";
    const char* function_ = "";
    uint32_t line_ = 0;
};

// The integer types that are numbers; bool and the character types but `signed char` and `unsigned
// char` are none.
template <typename T>
concept Number = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                 !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                 !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

// Puts errno back to what it was, so that a statement may stand between a failed call and its use.
struct ErrnoKeeper {
    ErrnoKeeper() = default;
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { errno = kept; }

    const int kept = errno;
};

// One line, written when it goes. A line that would not fit the thread's buffer is cut so that the
// line feed still does. Lives on one thread, for one statement.
class LogLine {
  public:
    LogLine(LogLevel level, const LogLoc& loc) : loc_(loc) {
        const ErrnoKeeper keeper;
        logger_ = singleton()->logger();

        char head[kTagLength + 1 + Time::kMaxLength + 1 + kMaxDigits + 1];
        char* at = head;
        std::memcpy(at, &kTags[static_cast<size_t>(level) * kTagLength], kTagLength);
        at += kTagLength;
        *at++ = ' ';
        at += Time::now().formatMilli(at);
        *at++ = ' ';
        at += formatUInt(static_cast<uint64_t>(gettid()), at);
        *at++ = ' ';
        append(head, static_cast<size_t>(at - head));
        if (!loc_.isEmpty()) {
            *this << loc_ << ' ';
        }
    }
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    ~LogLine() {
        if (logger_ == nullptr) {
            return;
        }
        const ErrnoKeeper keeper;
        count_ += logger_->produce("\n", 1);
        logger_->flush(count_);
    }

    const LogLoc& loc() const { return loc_; }

    void append(const char* data, size_t n) {
        if (logger_ == nullptr) {
            return;
        }
        constexpr size_t kLineFeed = 1;
        const size_t room = logger_->room();
        count_ += logger_->produce(data, std::min(n, room - std::min(room, kLineFeed)));
    }

    // A template, so that no pointer turns into a bool.
    template <std::same_as<bool> T> LogLine& operator<<(T value) {
        return *this << (value ? std::string_view("true") : std::string_view("false"));
    }
    LogLine& operator<<(char value) {
        append(&value, 1);
        return *this;
    }
    LogLine& operator<<(float value) { return appendShortest(value); }
    LogLine& operator<<(double value) { return appendShortest(value); }
    LogLine& operator<<(const char* text) {
        return *this << std::string_view(text != nullptr ? text : "(null)");
    }
    // A std::string, too.
    LogLine& operator<<(std::string_view text) {
        append(text.data(), text.size());
        return *this;
    }
    LogLine& operator<<(const LogLoc& loc) {
        if (loc.isEmpty()) {
            return *this;
        }
        return *this << loc.file_ << ':' << loc.line_;
    }
    template <Number T> LogLine& operator<<(T value) {
        auto magnitude = static_cast<uint64_t>(value);
        if (value < 0) {
            *this << '-';
            magnitude = 0 - magnitude; // right for the lowest number of the type, too
        }
        const detail::Digits digits(magnitude);
        append(digits.data(), digits.size());
        return *this;
    }

  private:
    static constexpr std::string_view kTags = "TRACDEBUINFOWARNERROFATA";
    static constexpr size_t kTagLength = 4;

    // The shortest text that reads back as the same number.
    template <std::floating_point T> LogLine& appendShortest(T value) {
        char text[32]; // the longest is 24: "-2.2250738585072014e-308"
        const auto end = std::to_chars(text, text + sizeof(text), value);
        append(text, static_cast<size_t>(end.ptr - text));
        return *this;
    }

    SyncLogger* logger_ = nullptr; // none behind the end of the process's logger
    size_t count_ = 0;             // bytes of this line so far
    LogLoc loc_;
};

// Makes a log statement an expression of type void, so that it fits behind an `if` without braces.
struct Statement {
    void operator&(const LogLine&) const {}
};

} // namespace limlog

// The place at which it stands.
#define LIMLOG_HERE                                                                                \
    limlog::LogLoc {                                                                               \
        __FILE__, __func__, __LINE__                                                               \
    }

// Arguments follow the macro, inside the conditional: they are evaluated only when the line is
// written. That is also why there are no parentheses around it.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define LIMLOG_LINE(level)                                                                         \
    !limlog::isOn(level) ? static_cast<void>(0)                                                    \
                         : limlog::Statement{} & limlog::LogLine(level, LIMLOG_HERE)
// NOLINTEND(bugprone-macro-parentheses)

#define VCI_LOG_TRACE LIMLOG_LINE(limlog::LogLevel::Trace)
#define VCI_LOG_DEBUG LIMLOG_LINE(limlog::LogLevel::Debug)
#define VCI_LOG_INFO LIMLOG_LINE(limlog::LogLevel::Info)
#define VCI_LOG_WARN LIMLOG_LINE(limlog::LogLevel::Warn)
#define VCI_LOG_ERROR LIMLOG_LINE(limlog::LogLevel::Error)
#define VCI_LOG_FATAL LIMLOG_LINE(limlog::LogLevel::Fatal)
