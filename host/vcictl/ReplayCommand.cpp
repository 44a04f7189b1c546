#include "vcictl/ReplayCommand.h"

#include "vcictl/Interrupt.h"
#include "vcictl/ReplayOutput.h"
#include "vcihost/CanChannel.h"
#include "vcihost/Notation.h"

#include <limits>
#include <utility>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

// What the device can wait for at most, in the units of the options.
constexpr uint64_t kMostGap = vcihost::kLongestReplayInterval / 1000;
constexpr uint64_t kMostSkip = vcihost::kLongestReplayInterval / 1'000'000;

constexpr char kFooter[] =
    "FILE is a text log of candump, or a capture file of the pcapng format, as vcictl record "
    "writes\n"
    "them. The channels must be open. An interface of the file is played on the channel of its\n"
    "name; with OUT=IN alone those interfaces IN are played that are named, each on channel OUT.\n"
    "Error frames, comments and frames of other buses are left out and counted.\n"
    "\n"
    "The device waits between frames, not the host. Its timing goes from frame to frame, so that\n"
    "what one is late all that follow are. -s sends a frame that comes longer than S behind the\n"
    "one before at once: all that follows comes earlier by that interval. The device can wait\n"
    "2147 s at most; a file with longer intervals needs -s. A pass of -l begins at once.\n"
    "\n"
    "Space or p pauses, and goes on: with the whole interval of the frame that was waiting.\n"
    "Ctrl-C cancels.\n"
    "\n"
    "At the end stands a receipt. The records of the channels are switched on for it and then "
    "off,\n"
    "also where they were on before. Frames that look all alike cannot be told apart: which of\n"
    "them are lost is then not known, only how many.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused, or with --max-jitter: a frame was lost, or the "
    "time\n"
    "since the frame before on its channel was further off than this; 2 wrong usage, trouble with\n"
    "the device or the file, 3 no answer in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl replay drive.pcapng\n"
    "  vcictl replay drive.log can2=can0 -s 5         what can0 has had goes out on can2\n"
    "  vcictl replay burst.log -t -g 10 -l i          a frame each 10 ms, without an end\n"
    "  vcictl replay drive.log --max-jitter 500us --json";

} // namespace

ReplayCommand::ReplayCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("FILE", file_, "What to play")->required()->type_name("");
    app.add_option("OUT=IN", outputs_, "Play frames of interface IN on channel OUT")->type_name("");
    AddNumber(app, "-g", gap_, kMostGap, "Least time between two frames", "MS", "0");
    AddNumber(app, "-s", skip_, kMostSkip, "Skip intervals longer than this; 0: none", "S", "0");
    app.add_option("-l", passes_, "Play the file N times; i: until Ctrl-C")
        ->type_name("N")
        ->capture_default_str();
    app.add_flag("-t", ignoreTimes_, "Ignore the times of the file: the gap of -g alone counts");
    CLI::Option* const none =
        app.add_flag("--no-receipt", noReceipt_, "Leave the records of the channels as they are");
    app.add_option("--max-jitter", maxJitter_, "End with status 1 above this: 200us")
        ->type_name("TIME")
        ->excludes(none);
    app.add_flag("--json", json_, "Print a JSON object");
    AddNumber(app, "--wait", wait_, kMostMilliseconds, "Time limit of an answer", "MS", "1000");
    AddNumber(app, "--silence", silence_, kMostMilliseconds,
              "Give up when the device asks for nothing so long beyond the frames' intervals", "MS",
              "10000");
}

vcihost::ReplayOptions ReplayCommand::Options() const {
    vcihost::ReplayOptions options;
    options.gap = std::chrono::milliseconds(gap_);
    options.skip = std::chrono::seconds(skip_);
    options.ignoreTimes = ignoreTimes_;
    for (const std::string& output : outputs_) {
        vcihost::AddReplayOutput(options, output);
    }
    return options;
}

uint64_t ReplayCommand::Passes() const {
    if (passes_ == "i") {
        return 0;
    }
    const auto passes = vcihost::ParseNumber(passes_, std::numeric_limits<uint32_t>::max());
    if (!passes || *passes == 0) {
        throw UsageError(fmt::format("-l: '{}' is neither a whole number above 0 nor i", passes_));
    }
    return *passes;
}

ExitStatus ReplayCommand::Run(Tool& tool) {
    // What is wrong with any of these is told before anything is done.
    std::optional<std::chrono::nanoseconds> limit;
    if (!maxJitter_.empty()) {
        limit = vcihost::ParseDuration("--max-jitter", maxJitter_);
    }
    Replayer::Settings settings;
    settings.passes = Passes();
    settings.receipt = !noReceipt_;
    settings.timeout = std::chrono::milliseconds(wait_);
    settings.silence = std::chrono::milliseconds(silence_);
    const vcihost::ReplayOptions options = Options();
    vcihost::Trace trace = vcihost::Trace::Read(file_);
    const auto plan = vcihost::ReplayPlan::Make(trace, options);

    const auto transport = vcihost::Transport::Open(tool.device, vcihost::Waiter());
    Replayer replayer(*transport, plan, settings);
    ExitStatus status = replayer.Run();
    if (replayer.Given() > 0) {
        if (json_) {
            PrintReplayJson(tool.out, trace, plan, replayer, settings.receipt);
        } else {
            PrintReplayPlan(tool.out, trace, plan);
            PrintReplay(tool.out, replayer, settings.receipt);
        }
    }
    if (status == kExitOk && limit) {
        status = CheckJitter(replayer.Receipt(), *limit);
    }
    if (Interrupt::Came()) {
        throw vcihost::Interrupted();
    }
    return status;
}

ExitStatus ReplayCommand::CheckJitter(const vcihost::ReplayReceipt& receipt,
                                      std::chrono::nanoseconds limit) const {
    ExitStatus status = kExitOk;
    for (const vcihost::ReplayFrameReceipt& frame : receipt.Frames()) {
        std::string fault;
        if (frame.Lost() > 0) {
            fault = fmt::format("{} of {} frames lost", frame.Lost(), frame.due);
        } else if (frame.spacingMax && *frame.spacingMax > limit.count()) {
            fault = fmt::format("spacing {:.1f} us off, above {}",
                                static_cast<double>(*frame.spacingMax) / 1000, maxJitter_);
        } else {
            continue;
        }
        Complain(fmt::format("{} {}: {}", vcihost::CanChannelName(frame.channel),
                             vcihost::CanIdText(frame.frame), fault));
        status = kExitRefused;
    }
    return status;
}
