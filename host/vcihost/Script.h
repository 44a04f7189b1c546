#pragma once

#include "vcihost/Pattern.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// A conversation file, as it was read: one step a line. docs/host-protocol.md tells the format.
// Plain values.
namespace vcihost {

namespace step {

struct Send { // > and >>
    Bytes bytes;
    bool framed; // from a service section
};
struct Receive { // <
    Pattern pattern;
    std::string text; // the pattern as written
};
struct Silence {
    std::chrono::milliseconds time;
};
struct Wait {
    std::chrono::milliseconds time;
};
struct SetDeadline {
    std::chrono::milliseconds time;
};
struct Set {
    std::string file;
    std::string value;
};
struct Expect {
    std::string file;
    std::string line; // as fnmatch(3) takes it
};
struct Console {
    std::string text;
};
struct Rewind {};
struct Run {
    std::string command;
};
struct Say {
    std::string text;
};
struct Drain {};
struct Reopen {};

} // namespace step

struct Step {
    size_t line; // from 1
    std::variant<step::Send, step::Receive, step::Silence, step::Wait, step::SetDeadline, step::Set,
                 step::Expect, step::Console, step::Rewind, step::Run, step::Say, step::Drain,
                 step::Reopen>
        action;
};

// A line that is no step. what() says why.
class ScriptError : public std::runtime_error {
  public:
    ScriptError(size_t line, const std::string& what) : std::runtime_error(what), line_(line) {}
    size_t line() const { return line_; }

  private:
    size_t line_;
};

struct Script {
    std::vector<Step> steps;

    // Throws ScriptError for the first line that is no step.
    static Script Parse(std::string_view text);

    // The line of the first step of one of these kinds; 0 when there is none.
    size_t FirstControlLine() const; // needs the control directory
    size_t FirstConsoleLine() const; // needs the console file
};

} // namespace vcihost
