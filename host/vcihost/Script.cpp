#include "vcihost/Script.h"

#include "vcihost/Frame.h"

#include <algorithm>
#include <array>
#include <limits>

#include <fmt/format.h>

namespace vcihost {

namespace {

using Action = decltype(Step::action);

constexpr std::string_view kBlanks = " \t\r";
constexpr uint64_t kMostMilliseconds = 24UL * 60 * 60 * 1000;

// What is wrong with a step; becomes a ScriptError with the line's number.
class StepError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The first word, and the rest without the blanks around it. Arrows are words without a blank.
std::pair<std::string_view, std::string_view> SplitWord(std::string_view text) {
    size_t end = std::min(text.find_first_of(kBlanks), text.size());
    if (text.starts_with('<') || text.starts_with('>')) {
        end = text.starts_with(">>") ? 2 : 1;
    }
    return {text.substr(0, end), Trim(text.substr(end))};
}

// Hex may have a comment behind it.
std::string_view WithoutComment(std::string_view text) {
    return Trim(text.substr(0, text.find('#')));
}

Bytes ParseBytes(std::string_view text) {
    const auto bytes = Pattern::Parse(text).Exact();
    if (!bytes) {
        throw StepError("what is sent must be told whole, without .. and *");
    }
    if (bytes->empty()) {
        throw StepError("there are no bytes to send");
    }
    return *bytes;
}

Action ParseSend(std::string_view rest) {
    rest = WithoutComment(rest);
    uint64_t handle = 0;
    if (const size_t at = rest.find('@'); at != std::string_view::npos) {
        const auto number =
            ParseNumber(Trim(rest.substr(at + 1)), std::numeric_limits<uint32_t>::max());
        if (!number) {
            throw StepError("the handle behind @ is no 32-bit number, decimal or 0x");
        }
        handle = *number;
        rest = rest.substr(0, at);
    }
    return step::Send{BuildFrame(ParseBytes(rest), static_cast<uint32_t>(handle)), true};
}

Action ParseSendRaw(std::string_view rest) {
    return step::Send{ParseBytes(WithoutComment(rest)), false};
}

Action ParseReceive(std::string_view rest) {
    rest = WithoutComment(rest);
    if (rest.empty()) {
        throw StepError("a pattern must follow <; a lone * takes any message");
    }
    return step::Receive{Pattern::Parse(rest), std::string(rest)};
}

template <typename T> Action ParseTime(std::string_view rest) {
    const auto number = ParseNumber(rest, kMostMilliseconds);
    if (!number) {
        throw StepError(fmt::format("'{}' is no number of milliseconds up to a day", rest));
    }
    return T{std::chrono::milliseconds(*number)};
}

std::string ControlFile(std::string_view name) {
    if (name.empty() || name.starts_with('/') || name.starts_with("..") ||
        name.find("/..") != std::string_view::npos) {
        throw StepError("the name of a file in the control directory must follow");
    }
    return std::string(name);
}

Action ParseSet(std::string_view rest) {
    const auto [file, value] = SplitWord(rest);
    return step::Set{ControlFile(file), std::string(value)};
}

std::string Text(std::string_view rest, const char* what) {
    if (rest.empty()) {
        throw StepError(fmt::format("{} must follow", what));
    }
    return std::string(rest);
}

Action ParseExpect(std::string_view rest) {
    const auto [file, line] = SplitWord(rest);
    return step::Expect{ControlFile(file), Text(line, "the line that the file is to have")};
}

Action ParseConsole(std::string_view rest) {
    return step::Console{Text(rest, "the text that the console is to show")};
}

Action ParseRun(std::string_view rest) {
    return step::Run{Text(rest, "a shell command")};
}

Action ParseSay(std::string_view rest) {
    return step::Say{std::string(rest)};
}

template <typename T> Action ParseBare(std::string_view rest) {
    if (!rest.empty()) {
        throw StepError(fmt::format("nothing may follow, but there is '{}'", rest));
    }
    return T{};
}

struct Word {
    std::string_view word;
    Action (*parse)(std::string_view rest);
};

constexpr auto kWords = std::to_array<Word>({
    {">", ParseSend},
    {">>", ParseSendRaw},
    {"<", ParseReceive},
    {"silence", ParseTime<step::Silence>},
    {"wait", ParseTime<step::Wait>},
    {"deadline", ParseTime<step::SetDeadline>},
    {"set", ParseSet},
    {"expect", ParseExpect},
    {"console", ParseConsole},
    {"rewind", ParseBare<step::Rewind>},
    {"run", ParseRun},
    {"say", ParseSay},
    {"drain", ParseBare<step::Drain>},
    {"reopen", ParseBare<step::Reopen>},
});

Action ParseAction(std::string_view line) {
    const auto [word, rest] = SplitWord(line);
    for (const Word& known : kWords) {
        if (known.word == word) {
            return known.parse(rest);
        }
    }
    std::string words;
    for (const Word& known : kWords) {
        words += fmt::format(" {}", known.word);
    }
    throw StepError(
        fmt::format("'{}' is no step; a line begins with one of:{}, or #", word, words));
}

template <typename... Kinds> size_t FirstLine(const std::vector<Step>& steps) {
    for (const Step& step : steps) {
        if ((std::holds_alternative<Kinds>(step.action) || ...)) {
            return step.line;
        }
    }
    return 0;
}

} // namespace

Script Script::Parse(std::string_view text) {
    Script script;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = Trim(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        try {
            script.steps.push_back({number, ParseAction(line)});
        } catch (const StepError& error) {
            throw ScriptError(number, error.what());
        } catch (const HexError& error) {
            throw ScriptError(number, error.what());
        }
    }
    return script;
}

size_t Script::FirstControlLine() const {
    return FirstLine<step::Set, step::Expect>(steps);
}

size_t Script::FirstConsoleLine() const {
    return FirstLine<step::Console, step::Rewind>(steps);
}

} // namespace vcihost
