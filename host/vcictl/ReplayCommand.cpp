#include "vcictl/ReplayCommand.h"

#include "vcictl/Interrupt.h"
#include "vcictl/Jitter.h"
#include "vcictl/ReplayOutput.h"
#include "vcihost/CanChannel.h"

#include <limits>
#include <utility>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

// What the device can wait for at most, in the units of the options.
constexpr uint64_t kMostGap = vcihost::kLongestReplayInterval / 1000;
constexpr uint64_t kMostSkip = vcihost::kLongestReplayInterval / 1'000'000;

constexpr char kFooter[] =
    "FILE is a text log of candump, or a capture file of the pcapng format, as vcictl\n"
    "record writes them. The channels must be open. An interface of the file is\n"
    "played on the channel of its name; with OUT=IN alone those interfaces IN are\n"
    "played that are named, each on channel OUT. Error frames, comments and frames of\n"
    "other buses are left out and counted.\n"
    "\n"
    "The device waits between frames, not the host. Intervals count from frame to\n"
    "frame: a delay is passed on to all frames behind it. -s sends a frame at once\n"
    "when its interval is longer than S seconds; all behind it comes that much\n"
    "earlier. The device can wait 2147 s at most; a file with longer intervals needs\n"
    "-s. A pass of -l begins at once.\n"
    "\n"
    "Space or p pauses, and goes on: with the whole interval of the frame that was\n"
    "waiting. Ctrl-C cancels.\n"
    "\n"
    "At the end stands a receipt. The records of the channels are switched on for it\n"
    "and then off, also where they were on before. Frames that look all alike cannot\n"
    "be told apart: which of them are lost is then not known, only how many. It\n"
    "takes memory for each frame: a replay without an end wants --no-receipt.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused, or with --max-jitter: a frame was\n"
    "lost, or the time since the frame before on its channel was further off than\n"
    "this; 2 wrong usage, trouble with the device or the file, 3 no answer in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl replay drive.pcapng\n"
    "  vcictl replay drive.log can2=can0 -s 5         what can0 has had goes out on can2\n"
    "  vcictl replay burst.log -t -g 10 -l i --no-receipt\n"
    "                                                 a frame each 10 ms, without an end\n"
    "  vcictl replay drive.log --max-jitter 500us --json";

// A frame that went once has no spacing, and nothing to find fault with.
std::vector<JitterLine> JitterLines(const vcihost::ReplayReceipt& receipt) {
    std::vector<JitterLine> lines;
    for (const vcihost::ReplayFrameReceipt& frame : receipt.Frames()) {
        lines.push_back(
            {vcihost::CanChannelName(frame.channel) + " " + vcihost::CanIdText(frame.frame),
             frame.due, frame.sent, frame.Lost(), frame.spacingMax});
    }
    return lines;
}

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
    AddMaxJitter(app, maxJitter_)->excludes(none);
    app.add_flag("--json", json_, "Print a JSON object");
    AddWait(app, wait_);
    AddNumber(app, "--silence", silence_, kMostMilliseconds,
              "Give up when the device is silent for longer than this beyond the frames' intervals",
              "MS", "10000");
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
    const auto limit = JitterLimit::Parse(maxJitter_);
    Replayer::Settings settings;
    settings.passes = Passes();
    settings.receipt = !noReceipt_;
    settings.timeout = wait_;
    settings.silence = std::chrono::milliseconds(silence_);
    const vcihost::ReplayOptions options = Options();
    vcihost::Trace trace = vcihost::Trace::Read(file_);
    const auto plan = vcihost::ReplayPlan::Make(trace, options);

    const auto transport = tool.OpenUninterrupted();
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
        status = CheckJitter(JitterLines(replayer.Receipt()), *limit,
                             {.before = "spacing ", .after = " off", .needsMeasurement = false});
    }
    if (Interrupt::Came()) {
        throw vcihost::Interrupted();
    }
    return status;
}
