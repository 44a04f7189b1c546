#pragma once

#include "vcictl/Output.h"
#include "vcictl/Replayer.h"
#include "vcihost/Trace.h"

// What `vcictl replay` prints when it is over. `trace` has no frames any more, only its counts.

// What became of the file: what was left out, and what that does to its times.
void PrintReplayPlan(Output& out, const vcihost::Trace& trace, const vcihost::ReplayPlan& plan);

// How the frames went; without a receipt only how many.
void PrintReplay(Output& out, const Replayer& replayer, bool receipt);

// All of it as one object, on one line.
void PrintReplayJson(Output& out, const vcihost::Trace& trace, const vcihost::ReplayPlan& plan,
                     const Replayer& replayer, bool receipt);
