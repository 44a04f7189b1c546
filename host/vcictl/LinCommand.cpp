#include "vcictl/LinCommand.h"

#include "vcictl/LinDisturbCommand.h"
#include "vcictl/LinOpenCommand.h"
#include "vcictl/LinResponseCommand.h"
#include "vcictl/LinRunCommand.h"
#include "vcictl/LinSendCommand.h"
#include "vcictl/LinStateCommand.h"
#include "vcictl/LinTableCommand.h"
#include "vcictl/LinWakeCommand.h"

#include <CLI/App.hpp>

namespace {

constexpr char kFooter[] =
    "Channels are lin0 and lin1, also 0 and 1, or 50 and 51 as the list of all\n"
    "channels numbers them. Identifiers are 00 to 3F in hex, without parity bits.\n"
    "Frames are\n"
    "  10#1122            header and response, 1 to 8 bytes\n"
    "  3C#00.FF.FF        the same with dots between bytes\n"
    "  10#R4              header alone; another node responds with 4 bytes\n"
    "\n"
    "A commander sends the headers of its schedule table, a responder waits for them.\n"
    "Both send the responses that they have.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused or --max-jitter was exceeded, 2 wrong\n"
    "usage or trouble with the device, 3 no answer in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin open lin0 --bitrate 19200 --version 2.1\n"
    "  vcictl lin role lin0 commander\n"
    "  vcictl lin response lin0 10#1122\n"
    "  vcictl lin table lin0 body.txt\n"
    "  vcictl lin run lin0\n"
    "  vcictl record lin0 lin1\n"
    "\n"
    "vcictl lin COMMAND --help tells about one command.";

} // namespace

LinCommand::LinCommand(CLI::App& app) {
    app.footer(kFooter);
    app.require_subcommand(1);
    const auto add = [&](const char* name, const char* summary, const auto& make) {
        CLI::App* const part = AddPart(app, name, summary, "");
        parts_.push_back({part, make(*part)});
    };
    using Kind = LinStateCommand::Kind;
    const auto state = [](Kind kind) {
        return [kind](CLI::App& part) { return std::make_unique<LinStateCommand>(part, kind); };
    };
    add("open", "Open a channel",
        [](CLI::App& part) { return std::make_unique<LinOpenCommand>(part); });
    add("close", "Stop the schedule and close a channel", state(Kind::Close));
    add("role", "Make a channel commander or responder", state(Kind::Role));
    add("table", "Load a schedule table",
        [](CLI::App& part) { return std::make_unique<LinTableCommand>(part); });
    add("response", "Set and delete responses",
        [](CLI::App& part) { return std::make_unique<LinResponseCommand>(part); });
    add("clear", "Stop the schedule, clear table or responses", state(Kind::Clear));
    add("run", "Run the schedule; measure it",
        [](CLI::App& part) { return std::make_unique<LinRunCommand>(part); });
    add("stop", "Stop the schedule", state(Kind::Stop));
    add("send", "Send frames outside the schedule, with times on the bus as wanted",
        [](CLI::App& part) { return std::make_unique<LinSendCommand>(part); });
    add("wake", "Send wake-up signals, from a responder",
        [](CLI::App& part) { return std::make_unique<LinWakeCommand>(part); });
    add("sleep", "Stop the schedule and send the bus to sleep, from a commander",
        state(Kind::Sleep));
    add("disturb", "Put faults on the bus",
        [](CLI::App& part) { return std::make_unique<LinDisturbCommand>(part); });
}

ExitStatus LinCommand::Run(Tool& tool) {
    for (const Part& part : parts_) {
        if (part.app->parsed()) {
            return part.command->Run(tool);
        }
    }
    return kExitTrouble; // not reached: one part is required
}
