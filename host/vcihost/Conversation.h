#pragma once

#include "vcihost/ConsoleFile.h"
#include "vcihost/ControlDir.h"
#include "vcihost/Script.h"
#include "vcihost/Transcript.h"
#include "vcihost/Transport.h"

namespace vcihost {

// An expectation was not met, or a step failed. what() tells it in one or more lines: what was
// expected, what came.
class ConversationError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Holds a conversation with a device, step by step. Used on one thread.
class Conversation {
  public:
    struct Settings {
        std::string device;      // path of the link
        std::string controlDir;  // may be empty when the script has no control step
        std::string consoleFile; // likewise for console steps
        double timeScale = 1;    // multiplies every deadline, for a slow board
    };

    struct Totals {
        size_t sent = 0;         // frames and raw pieces
        size_t expectations = 0; // that were met: messages, silences, files, consoles, commands
    };

    // Opens the device. Throws TransportError.
    Conversation(Settings settings, const Waiter& waiter, Transcript transcript);

    // Takes the steps in turn. Throws ConversationError for the first that fails, TransportError,
    // Interrupted.
    Totals Run(const Script& script);

    // The line of the step in hand, or of the last one.
    size_t line() const { return line_; }

  private:
    void Do(const step::Send& step);
    void Do(const step::Receive& step);
    void Do(const step::Silence& step);
    void Do(const step::Wait& step);
    void Do(const step::SetDeadline& step);
    void Do(const step::Set& step);
    void Do(const step::Expect& step);
    void Do(const step::Console& step);
    void Do(const step::Rewind& step);
    void Do(const step::Run& step);
    void Do(const step::Say& step);
    void Do(const step::Drain& step);
    void Do(const step::Reopen& step);

    std::chrono::milliseconds Scaled(std::chrono::milliseconds time) const;

    Settings settings_;
    Waiter waiter_;
    Transcript transcript_;
    ControlDir control_;
    ConsoleFile console_;
    std::unique_ptr<Transport> transport_;
    std::chrono::milliseconds limit_; // of an expectation, before it is scaled
    Totals totals_;
    size_t line_ = 0;
};

} // namespace vcihost
