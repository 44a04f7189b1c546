#include "vcictl/IoCommand.h"

#include "vcictl/Ask.h"
#include "vcictl/DescriptionJson.h"
#include "vcictl/Watch.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/IoSample.h"
#include "vcihost/Notation.h"

#include <chrono>
#include <limits>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr uint64_t kMostPeriod = std::numeric_limits<uint16_t>::max();

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the device refused, 2 wrong usage or trouble with the\n"
    "device, 3 no answer (watch: too few samples) in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl io out 1 high            switch digital output 1\n"
    "  vcictl io on --period 100       sample at this period\n"
    "  vcictl io watch                 show the samples\n"
    "\n"
    "vcictl io COMMAND --help tells about one command.";

constexpr char kOutFooter[] = "Examples:\n"
                              "  vcictl io out 1 high\n"
                              "  vcictl io out 1 high 2 low";

constexpr char kOnFooter[] =
    "The device starts at a period of 1000, whatever it was before. Its unit depends\n"
    "on the board; on the virtual board it is 1 ms.\n"
    "\n"
    "Examples:\n"
    "  vcictl io on\n"
    "  vcictl io on --period 100";

constexpr char kOffFooter[] = "The period becomes 0 with it.\n"
                              "\n"
                              "Example:\n"
                              "  vcictl io off";

constexpr char kPeriodFooter[] = "Whether there are periodic samples stays as it is: see io on.\n"
                                 "\n"
                                 "Example:\n"
                                 "  vcictl io period 100";

constexpr char kTriggerFooter[] =
    "Which events cause a sample depends on the board; on the virtual board it is the\n"
    "change of an input.\n"
    "\n"
    "Examples:\n"
    "  vcictl io trigger on\n"
    "  vcictl io trigger off";

constexpr char kWatchFooter[] =
    "Prints a line for each sample, those included that waited in the device before:\n"
    "device time, levels of inputs and outputs, each from number 1 on, converter\n"
    "values as the converter gives them, and what caused the sample, 0x00 for the\n"
    "period. It switches nothing: see io on and io trigger. Without --duration and\n"
    "--count it goes on until Ctrl-C.\n"
    "\n"
    "Exit status: 0 done, 3 if none came or fewer than --count, 2 on wrong usage or\n"
    "trouble with the device.\n"
    "\n"
    "Examples:\n"
    "  vcictl io watch\n"
    "  vcictl io watch --count 1 --duration 5s --json";

vcihost::IoOutput ParseOutput(const std::string& number, const std::string& level) {
    const auto parsed = vcihost::ParseNumber(number, vcihost::kIoOutputs);
    if (!parsed || *parsed == 0) {
        throw UsageError(fmt::format("OUTPUT: '{}' is no output; the device has 1 and 2", number));
    }
    if (level != "high" && level != "low") {
        throw UsageError(fmt::format("LEVEL: '{}' is neither high nor low", level));
    }
    return {static_cast<uint8_t>(*parsed), level == "high"};
}

} // namespace

IoCommand::IoCommand(CLI::App& app) {
    app.footer(kFooter);
    app.require_subcommand(1);

    CLI::App* const out = AddPart(app, "out", "Set digital outputs", kOutFooter);
    out->add_option("OUTPUT", outputs_, "1 or 2, then high or low; both in one request if wanted")
        ->required()
        ->type_name("LEVEL");
    CLI::App* const on = AddPart(app, "on", "Switch the periodic samples on", kOnFooter);
    AddNumber(*on, "--period", period_, kMostPeriod, "Then set this period", "N")
        ->each([this](const std::string&) { periodGiven_ = true; });
    CLI::App* const off = AddPart(app, "off", "Switch the periodic samples off", kOffFooter);
    CLI::App* const period = AddPart(app, "period", "Set the period of the samples", kPeriodFooter);
    AddNumber(*period, "N", period_, kMostPeriod, "0 to 65535", "")->required();
    CLI::App* const trigger =
        AddPart(app, "trigger", "Switch the samples at events", kTriggerFooter);
    trigger->add_option("STATE", triggerState_, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}))
        ->type_name("");
    for (CLI::App* const part : {out, on, off, period, trigger}) {
        AddWait(*part, wait_);
    }
    CLI::App* const watch = AddPart(app, "watch", "Show the samples", kWatchFooter);
    watch->add_option("--duration", duration_, "Stop after this time: 500ms, 10s")
        ->type_name("TIME");
    AddNumber(*watch, "-n,--count", count_, std::numeric_limits<uint64_t>::max(),
              "Stop after N samples; 0: no limit", "N", "0");
    watch->add_flag("--json", json_, "Print one JSON object a line");

    out_ = out;
    on_ = on;
    off_ = off;
    setPeriod_ = period;
    trigger_ = trigger;
}

ExitStatus IoCommand::Run(Tool& tool) {
    if (out_->parsed()) {
        return SetOutputs(tool);
    }
    if (on_->parsed()) {
        return SwitchOn(tool);
    }
    if (off_->parsed()) {
        return AskAndTell(tool, {vcihost::IoOpenRequest(false)}, wait_, "samples off");
    }
    if (setPeriod_->parsed()) {
        return AskAndTell(tool, {vcihost::IoPeriodRequest(static_cast<uint16_t>(period_))}, wait_,
                          fmt::format("period {}", period_));
    }
    if (trigger_->parsed()) {
        return AskAndTell(tool, {vcihost::IoTriggerRequest(triggerState_ == "on")}, wait_,
                          "triggers " + triggerState_);
    }
    return Watch(tool);
}

ExitStatus IoCommand::SetOutputs(Tool& tool) const {
    if (outputs_.size() % 2 != 0 || outputs_.size() > 2 * size_t{vcihost::kIoOutputs}) {
        throw UsageError("write one or two outputs, each with its level: 1 high 2 low");
    }
    std::vector<vcihost::IoOutput> outputs;
    std::string done;
    for (size_t i = 0; i < outputs_.size(); i += 2) {
        outputs.push_back(ParseOutput(outputs_[i], outputs_[i + 1]));
        done += fmt::format("{}output {} {}", i > 0 ? ", " : "", outputs.back().number,
                            outputs_[i + 1]);
    }
    return AskAndTell(tool, {vcihost::IoOutputRequest(outputs)}, wait_, done);
}

ExitStatus IoCommand::SwitchOn(Tool& tool) const {
    std::vector<vcihost::Bytes> services{vcihost::IoOpenRequest(true)};
    std::string done = "samples on";
    if (periodGiven_) {
        services.push_back(vcihost::IoPeriodRequest(static_cast<uint16_t>(period_)));
        done += fmt::format(", period {}", period_);
    }
    return AskAndTell(tool, services, wait_, done);
}

ExitStatus IoCommand::Watch(Tool& tool) const {
    const vcihost::Deadline deadline =
        duration_.empty() ? vcihost::Deadline::max()
                          : vcihost::After(vcihost::ParseDuration("--duration", duration_));
    const uint64_t printed =
        WatchMessages(tool, deadline, count_,
                      [&](const vcihost::Bytes& bytes) { return PrintSample(tool.out, bytes); });
    return printed > 0 && printed >= count_ ? kExitOk : kExitNoAnswer;
}

// True, and a line printed, when the message is a sample.
bool IoCommand::PrintSample(Output& out, const vcihost::Bytes& bytes) const {
    const auto message = vcihost::ParseMessage(bytes);
    const auto sample = message ? vcihost::IoSample::From(*message) : std::nullopt;
    if (!sample) {
        return false;
    }
    out.Line(json_ ? DescriptionJson(vcihost::DescribeMessage(bytes))
                   : fmt::format("{}  {}", vcihost::TimeText(sample->time), sample->Text()));
    return true;
}
