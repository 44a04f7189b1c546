#include "vcictl/SyncCommand.h"

#include "vcictl/Ask.h"
#include "vcictl/DescriptionJson.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/ErrorUpload.h"

#include <limits>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the device refused, 2 wrong usage or trouble with the device, 3 no\n"
    "answer (watch: no drop) in time.\n"
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
    "Prints a line for each drop, those included that waited in the device before. Without --wait\n"
    "and --count it goes on until Ctrl-C.\n"
    "\n"
    "Exit status: 0 if at least one came, 3 if none, 2 on wrong usage or trouble with the device.\n"
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
        AddNumber(*part, "--wait", answerWait_, kMostMilliseconds, "Time limit of the answer", "MS",
                  "1000");
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
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const AskResult result = Ask(session, service, std::chrono::milliseconds(answerWait_));
    if (result.status == kExitOk) {
        tool.out.Line(
            fmt::format("{}, device time {}", done, vcihost::TimeText(result.deviceTime)));
    }
    return result.status;
}

ExitStatus SyncCommand::Watch(Tool& tool) const {
    const auto transport = tool.Open();
    const vcihost::Deadline deadline = watchWaitGiven_
                                           ? vcihost::After(std::chrono::milliseconds(watchWait_))
                                           : vcihost::Deadline::max();
    uint64_t printed = 0;
    do {
        const auto bytes = transport->Receive(deadline);
        if (!bytes) {
            break;
        }
        if (PrintUpload(tool.out, *bytes)) {
            ++printed;
        }
    } while ((watchCount_ == 0 || printed < watchCount_) &&
             std::chrono::steady_clock::now() < deadline);
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
