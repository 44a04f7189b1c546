#pragma once

#include "vcictl/ExitStatus.h"
#include "vcihost/RecordChannel.h"
#include "vcihost/Session.h"

#include <vector>

// The records of channels that a command switches on for its own time. The device does not tell
// what was on before, so all of them go off at the end. Used on one thread.
class RecordSwitches {
  public:
    // `session` must outlive these. `timeout`: of an answer.
    RecordSwitches(vcihost::Session& session, std::chrono::milliseconds timeout)
        : session_(session), timeout_(timeout) {}

    // Switches one more record on. What goes wrong is told on standard error. Throws what the
    // session throws.
    ExitStatus On(const vcihost::RecordChannel& channel);

    // Switches off all that is on, or may be. Returns `status`, that of what was done before, or
    // else of the first switch that went wrong. Tells and throws like On().
    ExitStatus Off(ExitStatus status);

  private:
    ExitStatus Switch(const vcihost::RecordChannel& channel, bool on);

    vcihost::Session& session_;
    std::chrono::milliseconds timeout_;
    std::vector<vcihost::RecordChannel> on_;
};
