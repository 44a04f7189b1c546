#include "vcictl/TalkCommand.h"

#include "vcihost/Conversation.h"
#include "vcihost/InputFile.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iterator>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

// Lines of the transcript that stand before the error when a conversation fails unseen.
constexpr size_t kLinesBeforeError = 12;
constexpr double kMostTimeScale = 1000;

constexpr char kFormat[] =
    "The file has one step a line:\n"
    "  > HEX [@HANDLE]       send a frame around this service section\n"
    "  >> HEX                send these bytes as they stand\n"
    "  < PATTERN             the next message is this, whole; .. is any byte, a last * any rest\n"
    "  silence MS            no message comes for so long\n"
    "  drain                 discard the messages that wait\n"
    "  reopen                close the device and open it again\n"
    "  set FILE VALUE        write VALUE to a file of the control directory\n"
    "  expect FILE LINE      such a file has this line, in which * ? [] are shell wildcards\n"
    "  console TEXT          the console shows TEXT, behind what was found before\n"
    "  rewind                search the console from its beginning again\n"
    "  run COMMAND           this shell command ends with status 0\n"
    "  wait MS               do nothing for so long\n"
    "  deadline MS           time limit of the following expectations (at first 2000)\n"
    "  say TEXT              a sentence for the transcript\n"
    "  # ...                 a comment; may also stand behind HEX or PATTERN\n"
    "In HEX and PATTERN, XX*N is N times the byte XX. VCI_TIME_SCALE in the\n"
    "environment multiplies every time limit, for a slow board.\n"
    "\n"
    "Exit status: 0 if all went as the file has it, 1 at the first step that did not,\n"
    "2 on wrong usage or trouble with the device.\n"
    "\n"
    "Examples:\n"
    "  vcictl talk time.talk                     silent unless it fails\n"
    "  vcictl talk -v time.talk                  with a transcript\n"
    "  echo '> 1001' | vcictl talk -v -          from standard input\n";

std::string ReadFile(const std::string& path) {
    std::ifstream file = vcihost::OpenInput(path);
    std::string text(std::istreambuf_iterator<char>(file), {});
    vcihost::CheckReadToEnd(file, path);
    return text;
}

double TimeScale() {
    const char* const text = std::getenv("VCI_TIME_SCALE");
    if (text == nullptr || *text == '\0') {
        return 1;
    }
    char* end = nullptr;
    const double scale = std::strtod(text, &end);
    if (*end != '\0' || !std::isfinite(scale) || scale <= 0 || scale > kMostTimeScale) {
        throw UsageError(fmt::format("VCI_TIME_SCALE is '{}', which is no number above 0 and up "
                                     "to {}",
                                     text, kMostTimeScale));
    }
    return scale;
}

} // namespace

TalkCommand::TalkCommand(CLI::App& app) {
    app.footer(kFormat);
    app.add_option("FILE", file_, "Conversation file; - for standard input")
        ->required()
        ->type_name("");
    app.add_option("--control", controlDir_, "Control directory of the board, for set and expect")
        ->envname("VBOARD_CONTROL")
        ->type_name("DIR");
    app.add_option("--console", consoleFile_, "File that the board's console lands in")
        ->envname("VBOARD_CONSOLE")
        ->type_name("FILE");
    app.add_flag("-v,--verbose", verbose_, "Print a transcript: who said what, what it means");
}

ExitStatus TalkCommand::Run(Tool& tool) {
    const std::string name = file_ == "-" ? "standard input" : file_;
    vcihost::Script script;
    try {
        script = vcihost::Script::Parse(file_ == "-" ? ReadStandardInput("the conversation")
                                                     : ReadFile(file_));
    } catch (const vcihost::ScriptError& error) {
        throw UsageError(fmt::format("{}:{}: {}", name, error.line(), error.what()));
    }
    if (script.FirstControlLine() != 0 && controlDir_.empty()) {
        throw UsageError(
            fmt::format("{}:{}: this step needs --control DIR", name, script.FirstControlLine()));
    }
    if (script.FirstConsoleLine() != 0 && consoleFile_.empty()) {
        throw UsageError(
            fmt::format("{}:{}: this step needs --console FILE", name, script.FirstConsoleLine()));
    }

    std::deque<std::string> lastLines;
    const auto sink = [&](const std::string& line) {
        if (verbose_) {
            tool.out.Line(line);
            return;
        }
        lastLines.push_back(line);
        if (lastLines.size() > kLinesBeforeError) {
            lastLines.pop_front();
        }
    };
    vcihost::Conversation conversation({tool.device, controlDir_, consoleFile_, TimeScale()},
                                       tool.waiter, vcihost::Transcript(sink));
    try {
        const auto totals = conversation.Run(script);
        if (verbose_) {
            tool.out.Line(fmt::format("\nok: {} sent, {} expectations met", totals.sent,
                                      totals.expectations));
        }
        return kExitOk;
    } catch (const vcihost::ConversationError& error) {
        std::string report;
        for (const std::string& line : lastLines) {
            report += line + "\n";
        }
        report += fmt::format("{}:{}: {}\n", name, conversation.line(), error.what());
        static_cast<void>(std::fputs(report.c_str(), stderr));
        return kExitRefused;
    } catch (const vcihost::TransportError& error) {
        throw UsageError(fmt::format("{}:{}: {}", name, conversation.line(), error.what()));
    }
}
