#pragma once

#include "vcihost/Waiter.h"

#include <string>

namespace vcihost {

// One command that /bin/sh runs beside a conversation.
struct ShellCommand {
    int status = 0;        // as waitpid(2) gives it
    bool timedOut = false; // killed, with all that it started, when the deadline passed
    std::string output;    // what it wrote to standard output and standard error

    // "exit status 3", "signal 9", ... of a command that failed; empty for one that did not.
    std::string Failure() const;

    // Runs it with nothing on standard input, in a process group of its own, on the calling thread.
    // A program that it leaves behind is not waited for. Throws std::system_error, Interrupted.
    static ShellCommand Run(const std::string& command, Deadline deadline, const Waiter& waiter);
};

} // namespace vcihost
