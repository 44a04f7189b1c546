#pragma once

#include "vcictl/ExitStatus.h"
#include "vcihost/Session.h"

#include <string>
#include <vector>

struct Tool;

// What came of a request whose answer carries the device time.
struct AskResult {
    ExitStatus status = kExitOk;
    uint64_t deviceTime = 0; // nanoseconds; set like the rest when the status is kExitOk
    vcihost::Deadline sent;
    vcihost::Deadline received;
};

// What to do about a refusal with this code, to stand behind it; empty for nothing.
using RefusalAdvice = std::function<std::string(uint8_t code)>;

// Asks, and tells on standard error what went wrong: a refusal by name, no answer within `timeout`,
// an answer without a time.
AskResult Ask(vcihost::Session& session, const vcihost::Bytes& service,
              std::chrono::milliseconds timeout, const RefusalAdvice& advice = {});

// The answer to a request, whole.
struct AskedMessage {
    ExitStatus status = kExitOk;
    vcihost::Bytes bytes; // set when the status is kExitOk
};

// The same for a request whose answer is read by the caller.
AskedMessage AskMessage(vcihost::Session& session, const vcihost::Bytes& service,
                        std::chrono::milliseconds timeout, const RefusalAdvice& advice = {});

// The same for a request whose answer carries nothing.
ExitStatus AskPlain(vcihost::Session& session, const vcihost::Bytes& service,
                    std::chrono::milliseconds timeout, const RefusalAdvice& advice = {});

// Asks one behind the other over a link of its own, up to the first that goes wrong, and prints
// `done` with the device time of the last.
ExitStatus AskAndTell(Tool& tool, const std::vector<vcihost::Bytes>& services,
                      std::chrono::milliseconds timeout, const std::string& done);

// Tells of a refusal on standard error.
void ComplainOfRefusal(const vcihost::NegativeResponse& refusal, const RefusalAdvice& advice);
