#pragma once

#include "vcictl/ExitStatus.h"
#include "vcihost/Session.h"

// What came of a request of group 16, whose answers all carry the device time.
struct AskResult {
    ExitStatus status = kExitOk;
    uint64_t deviceTime = 0; // nanoseconds; set like the rest when the status is kExitOk
    vcihost::Deadline sent;
    vcihost::Deadline received;
};

// Asks, and tells on standard error what went wrong: a refusal by name, no answer within `timeout`,
// an answer without a time.
AskResult Ask(vcihost::Session& session, const vcihost::Bytes& service,
              std::chrono::milliseconds timeout);
