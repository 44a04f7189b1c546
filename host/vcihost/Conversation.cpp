#include "vcihost/Conversation.h"

#include "vcihost/Describe.h"
#include "vcihost/Session.h"
#include "vcihost/ShellCommand.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr std::chrono::milliseconds kExpectationLimit(2000);
constexpr std::chrono::milliseconds kSendLimit(5000);
constexpr std::chrono::milliseconds kCommandLimit(60'000);
// Between two looks at a file that is to change.
constexpr std::chrono::milliseconds kLookAgain(20);
// Of a long message or file in an error text.
constexpr size_t kMostShown = 400;

std::string Shorten(const std::string& text) {
    return text.size() <= kMostShown
               ? text
               : text.substr(0, kMostShown) + fmt::format(".. ({} characters)", text.size());
}

// Each line of a text behind an indentation.
std::string Indent(const std::string& text) {
    std::string indented = "\n    ";
    for (const char c : text.substr(0, text.find_last_not_of('\n') + 1)) {
        indented += c;
        if (c == '\n') {
            indented += "    ";
        }
    }
    return indented;
}

std::string CameInstead(const Bytes& message) {
    return fmt::format("\n  came      {}\n            {}", Shorten(ToHex(message)),
                       DescribeMessage(message).text);
}

} // namespace

Conversation::Conversation(Settings settings, const Waiter& waiter, Transcript transcript)
    : settings_(std::move(settings)),
      waiter_(waiter),
      transcript_(std::move(transcript)),
      control_(settings_.controlDir),
      console_(settings_.consoleFile),
      transport_(Transport::Open(settings_.device, waiter_)),
      limit_(kExpectationLimit) {}

Conversation::Totals Conversation::Run(const Script& script) {
    totals_ = {};
    for (const Step& step : script.steps) {
        line_ = step.line;
        std::visit([this](const auto& action) { Do(action); }, step.action);
    }
    return totals_;
}

std::chrono::milliseconds Conversation::Scaled(std::chrono::milliseconds time) const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time * settings_.timeScale);
}

void Conversation::Do(const step::Send& step) {
    if (step.framed) {
        transcript_.HostFrame(step.bytes);
    } else {
        transcript_.HostBytes(step.bytes);
    }
    transport_->Send(step.bytes, After(Scaled(kSendLimit)));
    ++totals_.sent;
}

void Conversation::Do(const step::Receive& step) {
    const auto limit = Scaled(limit_);
    const auto message = transport_->Receive(After(limit));
    if (!message) {
        throw ConversationError(fmt::format("no message came within {} ms\n  expected  {}",
                                            limit.count(), Shorten(step.text)));
    }
    transcript_.Device(*message);
    if (const auto offset = step.pattern.Mismatch(*message)) {
        throw ConversationError(
            fmt::format("the device said something else\n  expected  {}{}\n  differs   at byte {}",
                        Shorten(step.text), CameInstead(*message), *offset));
    }
    ++totals_.expectations;
}

void Conversation::Do(const step::Silence& step) {
    if (const auto message = transport_->Receive(After(step.time))) {
        transcript_.Device(*message);
        throw ConversationError(fmt::format("a message came\n  expected  silence for {} ms{}",
                                            step.time.count(), CameInstead(*message)));
    }
    transcript_.Note("silence", fmt::format("{} ms", step.time.count()), "nothing came");
    ++totals_.expectations;
}

void Conversation::Do(const step::Wait& step) {
    waiter_.Pause(After(step.time));
}

void Conversation::Do(const step::SetDeadline& step) {
    limit_ = step.time;
}

void Conversation::Do(const step::Set& step) {
    transcript_.Note("set", step.file + " " + step.value);
    try {
        control_.Set(step.file, step.value);
    } catch (const std::system_error& error) {
        throw ConversationError(error.what());
    }
}

void Conversation::Do(const step::Expect& step) {
    const auto limit = Scaled(limit_);
    const Deadline deadline = After(limit);
    for (;;) {
        std::string found;
        try {
            found = control_.Read(step.file);
            if (ControlDir::HasLine(found, step.line)) {
                break;
            }
        } catch (const std::system_error& error) {
            found = error.what();
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw ConversationError(
                fmt::format("{} did not show the line within {} ms\n  expected  {}\n  found{}",
                            step.file, limit.count(), step.line, Indent(Shorten(found))));
        }
        waiter_.Pause(std::min(deadline, After(kLookAgain)));
    }
    transcript_.Note("expect", step.file, step.line);
    ++totals_.expectations;
}

void Conversation::Do(const step::Console& step) {
    const auto limit = Scaled(limit_);
    const Deadline deadline = After(limit);
    while (!console_.Find(step.text)) {
        if (std::chrono::steady_clock::now() >= deadline) {
            throw ConversationError(
                fmt::format("the console did not show the text within {} ms\n  expected  {}\n  "
                            "showed{}",
                            limit.count(), step.text, Indent(Shorten(console_.Rest()))));
        }
        waiter_.Pause(std::min(deadline, After(kLookAgain)));
    }
    transcript_.Note("console", step.text);
    ++totals_.expectations;
}

void Conversation::Do(const step::Rewind& /*step*/) {
    console_.Rewind();
}

void Conversation::Do(const step::Run& step) {
    transcript_.Note("run", step.command);
    const auto result = ShellCommand::Run(step.command, After(Scaled(kCommandLimit)), waiter_);
    transcript_.Quote(result.output);
    if (const std::string failure = result.Failure(); !failure.empty()) {
        throw ConversationError(fmt::format("the command {}\n  command   {}\n  wrote{}", failure,
                                            step.command, Indent(Shorten(result.output))));
    }
    ++totals_.expectations;
}

void Conversation::Do(const step::Say& step) {
    transcript_.Say(step.text);
}

void Conversation::Do(const step::Drain& /*step*/) {
    Session(*transport_, [this](const Bytes& message) { transcript_.Device(message); }).Drain();
}

void Conversation::Do(const step::Reopen& /*step*/) {
    transport_.reset(); // the device has one opener at a time
    const Deadline deadline = After(Scaled(limit_));
    for (;;) {
        try {
            transport_ = Transport::Open(settings_.device, waiter_);
            return;
        } catch (const TransportError&) {
            if (std::chrono::steady_clock::now() >= deadline) {
                throw;
            }
        }
        waiter_.Pause(std::min(deadline, After(kLookAgain)));
    }
}

} // namespace vcihost
