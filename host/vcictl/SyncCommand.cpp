#include "vcictl/SyncCommand.h"

#include "vcictl/Ask.h"
#include "vcictl/DescriptionJson.h"
#include "vcictl/Watch.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/ErrorUpload.h"

#include <limits>

#include <CLI/App.hpp>

namespace {

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the device refused, 2 wrong usage or trouble with the\n"
    "device, 3 no answer (watch: no drop) in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl sync node slave          follow the sync line\n"
    "  vcictl sync up                  switch hardware sync on: the green lamp\n"
    "  vcictl sync watch --count 1     wait for the line to drop\n"
    "\n"
    "vcictl sync COMMAND --help tells about one command.";

constexpr char kNodeFooter[] = "Examples:\n"
                               "  vcictl sync node master\n"
                               "  vcictl sync node slave";

constexpr char kUpFooter[] = "Example:\n"
                             "  vcictl sync up --wait 200";

constexpr char kDownFooter[] = "Example:\n"
                               "  vcictl sync down";

constexpr char kRequestFooter[] = "Example:\n"
                                  "  vcictl sync request";

constexpr char kFollowUpFooter[] = "Examples:\n"
                                   "  vcictl sync followup\n"
                                   "  vcictl sync followup --time 1700000000000000000";

constexpr char kWatchFooter[] =
    "Prints a line for each drop, those included that waited in the device before.\n"
    "Without --wait and --count it goes on until Ctrl-C.\n"
    "\n"
    "Exit status: 0 if at least one came, 3 if none, 2 on wrong usage or trouble with\n"
    "the device.\n"
    "\n"
    "Examples:\n"
    "  vcictl sync watch\n"
    "  vcictl sync watch --wait 10000 --count 1 --json";

} // namespace

SyncCommand::SyncCommand(CLI::App& app) {
    app.footer(kFooter);
    app.require_subcommand(1);

    CLI::App* const node =
        AddPart(app, "node", "Set the device's role on the sync line", kNodeFooter);
    node->add_option("MODE", mode_, "master or slave")
        ->required()
        ->check(CLI::IsMember({"master", "slave"}))
        ->type_name("");
    CLI::App* const up = AddPart(app, "up", "Switch hardware sync on", kUpFooter);
    CLI::App* const down = AddPart(app, "down", "Switch hardware sync off", kDownFooter);
    CLI::App* const request =
        AddPart(app, "request", "Ask for the time, to compare clocks", kRequestFooter);
    CLI::App* const followUp =
        AddPart(app, "followup", "Send the follow-up of such a request", kFollowUpFooter);
    AddNumber(*followUp, "--time", hostTime_, std::numeric_limits<uint64_t>::max(),
              "Host time in nanoseconds instead of the host's clock", "NS")
        ->each([this](const std::string&) { hostTimeGiven_ = true; });
    for (CLI::App* const part : {node, up, down, request, followUp}) {
        AddWait(*part, answerWait_);
    }
    CLI::App* const watch = AddPart(app, "watch", "Print the drops of the sync line", kWatchFooter);
    AddNumber(*watch, "--wait", watchWait_, kMostMilliseconds, "Stop after this time", "MS")
        ->each([this](const std::string&) { watchWaitGiven_ = true; });
    AddNumber(*watch, "--count", watchCount_, std::numeric_limits<uint64_t>::max(),
              "Stop after N drops; 0: no limit", "N", "0");
    watch->add_flag("--json", json_, "Print one JSON object a line");

    node_ = node;
    up_ = up;
    down_ = down;
    request_ = request;
    followUp_ = followUp;
    watch_ = watch;
}

ExitStatus SyncCommand::Run(Tool& tool) {
    if (node_->parsed()) {
        return Request(tool, vcihost::SetSyncNode(mode_ == "master"), "node " + mode_);
    }
    if (up_->parsed() || down_->parsed()) {
        const bool up = up_->parsed();
        return Request(tool, vcihost::SetSyncState(up), up ? "sync up" : "sync down");
    }
    if (request_->parsed()) {
        return Request(tool, vcihost::SyncRequest(), "sync request");
    }
    if (followUp_->parsed()) {
        return Request(tool, vcihost::SyncFollowUp(hostTimeGiven_ ? hostTime_ : WallClock()),
                       "sync follow-up");
    }
    return Watch(tool);
}

ExitStatus SyncCommand::Request(Tool& tool, const vcihost::Bytes& service,
                                const std::string& done) const {
    return AskAndTell(tool, {service}, answerWait_, done);
}

ExitStatus SyncCommand::Watch(Tool& tool) const {
    const vcihost::Deadline deadline = watchWaitGiven_
                                           ? vcihost::After(std::chrono::milliseconds(watchWait_))
                                           : vcihost::Deadline::max();
    const uint64_t printed =
        WatchMessages(tool, deadline, watchCount_,
                      [&](const vcihost::Bytes& bytes) { return PrintUpload(tool.out, bytes); });
    return printed > 0 ? kExitOk : kExitNoAnswer;
}

// True, and a line printed, when the message tells of a drop.
bool SyncCommand::PrintUpload(Output& out, const vcihost::Bytes& bytes) const {
    const auto message = vcihost::ParseMessage(bytes);
    const auto upload = message ? vcihost::ErrorUpload::From(*message) : std::nullopt;
    if (!upload || !upload->IsSyncDrop()) {
        return false;
    }
    out.Line(json_ ? DescriptionJson(vcihost::DescribeMessage(bytes)) : upload->Text());
    return true;
}
