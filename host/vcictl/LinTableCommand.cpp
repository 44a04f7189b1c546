#include "vcictl/LinTableCommand.h"

#include "vcictl/JsonText.h"
#include "vcictl/LinRefusal.h"
#include "vcictl/LinTableFile.h"
#include "vcihost/LinRequest.h"

#include <CLI/App.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr char kFooter[] =
    "FILE has one entry a line: identifier in hex, length of the response, slot in\n"
    "milliseconds; # begins a comment. The device sends the headers in this order,\n"
    "over and over:\n"
    "  # door modules\n"
    "  10 2 10\n"
    "  11 8 20\n"
    "\n"
    "A slot that is too short for its frame and 15 bits is made as long. Responses\n"
    "that were set before are kept. A schedule that runs goes on with the new table,\n"
    "from its first entry.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin table lin0 body.txt\n"
    "  vcictl lin table lin0 body.txt --dry-run       show it, without a device";

constexpr char kRow[] = "{:>5} {:<3} {:<3} {:>6} {:>10} {:>11}";

} // namespace

LinTableCommand::LinTableCommand(CLI::App& app) {
    app.footer(kFooter);
    AddLinChannel(app, channel_);
    app.add_option("FILE", file_, "The table; - reads standard input")->required()->type_name("");
    CLI::Option* const dryRun =
        app.add_flag("--dry-run", dryRun_, "Show the table and send nothing");
    app.add_option("--bitrate", rate_, "Bit rate of the channel, for what is shown")
        ->type_name("RATE")
        ->capture_default_str()
        ->needs(dryRun);
    app.add_flag("--json", json_, "Show it as a JSON object")->needs(dryRun);
    AddWait(app, wait_);
}

ExitStatus LinTableCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    const uint16_t rate = vcihost::ParseLinBitRate("--bitrate", rate_);
    const auto table = ReadLinTableFile(file_);
    if (dryRun_) {
        Print(tool.out, table, rate);
        return kExitOk;
    }
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const ExitStatus status =
        AskPlain(session, vcihost::LinTableRequest(channel, table), wait_, LinTableAdvice(channel));
    if (status == kExitOk) {
        tool.out.Line(fmt::format("{}: table of {} loaded", vcihost::LinChannelName(channel),
                                  CountText(table.size(), "entry", "entries")));
    }
    return status;
}

void LinTableCommand::Print(Output& out, const std::vector<vcihost::LinSlot>& table,
                            uint16_t rate) const {
    nlohmann::ordered_json object{{"bitrate", rate}, {"slots", nlohmann::ordered_json::array()}};
    if (!json_) {
        out.Line(fmt::format(kRow, "entry", "id", "PID", "length", "slot us", "at us"));
    }
    uint64_t at = 0;
    for (size_t i = 0; i < table.size(); ++i) {
        const vcihost::LinSlot& slot = table[i];
        const uint32_t length = vcihost::LinSlotUs(slot, rate);
        const uint8_t pid = vcihost::LinPid(slot.id);
        if (json_) {
            object["slots"].push_back({{"id", slot.id},
                                       {"pid", pid},
                                       {"length", slot.length},
                                       {"slot_us", length},
                                       {"at_us", at}});
        } else {
            out.Line(fmt::format(kRow, i + 1, vcihost::LinIdText(slot.id),
                                 fmt::format("{:02X}", pid), slot.length, length, at));
        }
        at += length;
    }
    object["cycle_us"] = at;
    out.Line(json_ ? JsonText(object) : fmt::format("cycle {} us at {} bit/s", at, rate));
}
