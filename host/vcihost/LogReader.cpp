#include "vcihost/Notation.h"
#include "vcihost/SocketCan.h"
#include "vcihost/TraceReader.h"

#include <array>
#include <limits>

#include <fmt/format.h>

// The text log of candump(1): "(1700000000.123456) can0 123#DEADBEEF".
namespace vcihost {

namespace {

constexpr size_t kLongestLine = 1024; // some four times that of a full CAN FD frame with dots
constexpr size_t kMostDecimals = 9;
constexpr size_t kExtendedDigits = 8;
constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint64_t kMostSeconds = std::numeric_limits<int64_t>::max() / kSecond;

constexpr char kForm[] = "write '(SECONDS.DECIMALS) INTERFACE FRAME' as candump -l does";

bool IsDecimal(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Takes the first word off the text; empty at its end.
std::string_view TakeWord(std::string_view& text) {
    constexpr char kBlanks[] = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    const auto word = text.substr(0, text.find_first_of(kBlanks));
    text.remove_prefix(word.size());
    return word;
}

// "(1700000000.123456)" in nanoseconds.
uint64_t ParseTime(std::string_view word) {
    const size_t dot = word.find('.');
    if (!word.starts_with('(') || !word.ends_with(')') || dot == std::string_view::npos) {
        throw NotationError(fmt::format("'{}' is no time; {}", word, kForm));
    }
    const auto whole = word.substr(1, dot - 1);
    const auto part = word.substr(dot + 1, word.size() - dot - 2);
    const auto seconds = IsDecimal(whole) ? ParseNumber(whole, kMostSeconds - 1) : std::nullopt;
    if (!seconds || !IsDecimal(part) || part.size() > kMostDecimals) {
        throw NotationError(fmt::format("'{}' is no time; {}", word, kForm));
    }
    std::string decimals(part);
    decimals.resize(kMostDecimals, '0');
    return *seconds * kSecond + std::stoul(decimals);
}

bool IsError(std::string_view frame) {
    if (frame.find('#') != kExtendedDigits) {
        return false;
    }
    const auto id = ParseNumber("0x" + std::string(frame.substr(0, kExtendedDigits)),
                                std::numeric_limits<uint32_t>::max());
    return id && (*id & kSocketCanError) != 0;
}

// A DLC code above 8 behind a classic frame of 8 bytes. It is dropped: no request can ask for it.
std::string_view WithoutDlc(std::string_view frame) {
    constexpr size_t kSuffix = 2;
    const bool raw = frame.size() > kSuffix && frame[frame.size() - kSuffix] == '_' &&
                     std::string_view("9ABCDEFabcdef").find(frame.back()) != std::string::npos;
    return raw ? frame.substr(0, frame.size() - kSuffix) : frame;
}

void ReadLine(std::string_view line, uint64_t number, Trace& trace) {
    std::string_view rest = line;
    const auto first = TakeWord(rest);
    if (first.empty() || first.front() == '#' || first.front() == ';' || first.starts_with("//")) {
        ++trace.comments;
        return;
    }
    TraceFrame entry;
    entry.number = number;
    entry.time = ParseTime(first);
    const auto interface = TakeWord(rest);
    const auto frame = TakeWord(rest);
    if (frame.empty()) {
        throw NotationError(fmt::format("{} is missing; {}",
                                        interface.empty() ? "the interface" : "the frame", kForm));
    }
    const auto direction = TakeWord(rest); // of candump -l -x
    if ((!direction.empty() && direction != "R" && direction != "T") || !TakeWord(rest).empty()) {
        throw NotationError(fmt::format("'{}' stands behind the frame; {}", direction, kForm));
    }
    if (IsError(frame)) {
        ++trace.errors;
        return;
    }
    entry.frame = ParseLoggedCanFrame(WithoutDlc(frame));
    entry.interface = trace.Interface(std::string(interface));
    trace.frames.push_back(std::move(entry));
}

} // namespace

void ReadLog(std::istream& input, Trace& trace) {
    std::array<char, kLongestLine> line{};
    for (uint64_t number = 1; !input.eof(); ++number) {
        input.getline(line.data(), line.size());
        const auto length = static_cast<size_t>(input.gcount());
        const bool tooLong = input.fail() && length == line.size() - 1;
        if (input.fail() && !tooLong) {
            return; // the end, or no way on
        }
        try {
            if (tooLong) {
                throw NotationError("longer than any frame; this is no text log of candump");
            }
            // A line that is ended by its line feed counts that too.
            ReadLine(std::string_view(line.data(), input.eof() ? length : length - 1), number,
                     trace);
        } catch (const NotationError& error) {
            throw NotationError(fmt::format("{}, line {}: {}", trace.path, number, error.what()));
        }
    }
}

} // namespace vcihost
