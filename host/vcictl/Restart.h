#pragma once

#include "vcictl/Command.h"

#include <chrono>

// Waiting for a device that goes down and comes back. All of these throw vcihost::Interrupted.

// Until the board answers again, and tells its time then. The link may go and come meanwhile.
ExitStatus AwaitBoard(Tool& tool, std::chrono::nanoseconds limit);

// Has the configuration cleared, which the application answers behind its restart. The answer is
// read from a link that is opened anew where `transport` does not outlive the restart.
ExitStatus ClearAndAwait(Tool& tool, vcihost::Transport& transport, std::chrono::nanoseconds limit);
