#include "vcictl/CanPlanCommand.h"

#include "vcictl/CanPlanOutput.h"
#include "vcictl/Jitter.h"
#include "vcictl/JsonText.h"
#include "vcihost/CanChannel.h"
#include "vcihost/InputFile.h"
#include "vcihost/PlanSvg.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "Shows the plan that a device makes which has planned nothing before: for each\n"
    "frame its time on the bus, its offset in the window, the delay until the first\n"
    "one, and how many of its instances in a window meet another frame. All channels\n"
    "share one plan.\n"
    "\n"
    "--trace reads what a virtual bus has carried and prints beside the plan, for\n"
    "each frame: how many were due, seen and lost, how far the first start lay off\n"
    "the grid, offset and period measured, how far neighbouring starts are from whole\n"
    "periods apart (median, 99th percentile, maximum), the longest wait in the queue,\n"
    "and how many had to wait for another frame. The grid is laid so that the median\n"
    "of the first frame of the table is 0.\n"
    "\n"
    "Exit status: 0 done, 1 with --max-jitter: a frame was lost, not seen twice, or\n"
    "further from its spacing; 2 wrong usage or trouble with a file.\n"
    "\n"
    "Examples:\n"
    "  vcictl can plan 123#1122334455667788@10ms 124#1122334455667788@10ms --bitrate 500k\n"
    "  vcictl can plan 123#11@10ms can1:124##122@20ms --bitrate 500k --dbitrate 2M --svg plan.svg\n"
    "  vcictl can plan 123#11@10ms --bitrate 500k --trace bus.txt --max-jitter 200us";

vcihost::BusTrace ReadTrace(const std::string& path) {
    std::ifstream file = vcihost::OpenInput(path);
    auto trace = vcihost::BusTrace::Read(file, path);
    vcihost::CheckReadToEnd(file, path);
    return trace;
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    if (!(file << text) || !file.flush()) {
        throw UsageError(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    }
}

std::vector<JitterLine> JitterLines(const vcihost::CanPlan& plan,
                                    const vcihost::PlanReceipt& receipt) {
    std::vector<JitterLine> lines;
    for (size_t i = 0; i < plan.tasks.size(); ++i) {
        const vcihost::CanTask& task = plan.tasks[i].task;
        const vcihost::TaskReceipt& measured = receipt.tasks[i];
        lines.push_back(
            {vcihost::CanChannelName(task.channel) + " " + vcihost::CanIdText(task.frame),
             measured.due.value_or(0), measured.seen, measured.lost, measured.spacingMax});
    }
    return lines;
}

} // namespace

CanPlanCommand::CanPlanCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("FRAME@PERIOD", frames_, "Frames; can1: in front names another channel")
        ->required()
        ->type_name("");
    app.add_option("--bitrate", rate_, "Nominal bit rate of all channels")
        ->required()
        ->type_name("RATE");
    app.add_option("--dbitrate", dataRate_, "Data bit rate of all channels")->type_name("RATE");
    app.add_option("--channel", channel_, "Channel of the frames that name none")
        ->type_name("CHANNEL")
        ->capture_default_str();
    CLI::Option* const trace =
        app.add_option("--trace", traceFile_, "Trace of a virtual bus")->type_name("FILE");
    app.add_option("--svg", svgFile_, "Draw one window of the plan, and of the trace")
        ->type_name("FILE");
    app.add_flag("--json", json_, "Print a JSON object");
    AddMaxJitter(app, maxJitter_)->needs(trace);
}

ExitStatus CanPlanCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseCanChannel(channel_);
    std::vector<vcihost::CanTask> tasks;
    for (const std::string& text : frames_) {
        tasks.push_back(vcihost::ParseChannelTask(text, channel));
    }
    vcihost::CheckDistinct(tasks);
    const auto limit = JitterLimit::Parse(maxJitter_); // throws before anything is written
    const auto plan = vcihost::PlanCanTasks(tasks, PlanRates(rate_, dataRate_, tasks));
    std::optional<vcihost::BusTrace> trace;
    std::optional<vcihost::PlanReceipt> receipt;
    if (!traceFile_.empty()) {
        trace = ReadTrace(traceFile_);
        receipt = vcihost::PlanReceipt::Make(plan, *trace);
    }
    const auto* const measured = receipt ? &*receipt : nullptr;
    if (!svgFile_.empty()) {
        WriteFile(svgFile_, vcihost::PlanSvg(plan, trace ? &*trace : nullptr, measured));
    }
    if (json_) {
        tool.out.Line(JsonText(PlanJson(plan, measured)));
    } else {
        PrintPlan(tool.out, plan);
        if (receipt) {
            PrintReceipt(tool.out, plan, *receipt);
        }
    }
    return limit ? CheckJitter(JitterLines(plan, *receipt), *limit,
                               {.before = "jitter ", .after = "", .needsMeasurement = true})
                 : kExitOk;
}
