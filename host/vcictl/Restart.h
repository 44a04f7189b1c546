#pragma once

#include "vcictl/Command.h"

#include <chrono>

// Waiting for a device that goes down and comes back. All of these throw vcihost::Interrupted.

// Until the board has restarted and answers again, and tells its time then. `before` is its time
// when it was asked to, in nanoseconds: an answer whose time has merely run on since, over a link
// that was never gone, comes from a board that is still up.
ExitStatus AwaitBoard(Tool& tool, uint64_t before, std::chrono::nanoseconds limit);

// Has the configuration cleared, which the application answers behind its restart. The answer is
// read from a link that is opened anew where `link` does not outlive the restart.
ExitStatus ClearAndAwait(Tool& tool, std::unique_ptr<vcihost::Transport> link,
                         std::chrono::milliseconds timeout, std::chrono::nanoseconds limit);
