#include "vcictl/CanCommand.h"

#include "vcictl/CanCyclicCommand.h"
#include "vcictl/CanPlanCommand.h"
#include "vcictl/CanSendCommand.h"
#include "vcictl/CanSetCommand.h"
#include "vcictl/CanStateCommand.h"

#include <CLI/App.hpp>

namespace {

constexpr char kFooter[] =
    "Channels are can0 to can5, also 0 to 5, or 8 to 13 as requests number them.\n"
    "Frames are\n"
    "  123#DEADBEEF       standard identifier (3 digits), data\n"
    "  00000123#11.22     extended identifier (8 digits)\n"
    "  123#R4             remote frame for 4 bytes\n"
    "  123##1AABB         CAN FD; flags digit 0, or 1 for the switch of the bit rate\n"
    "\n"
    "The device accepts a set-up request as soon as its values are in range; whether\n"
    "the controller did it is not told.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused or --max-jitter was exceeded, 2 wrong\n"
    "usage or trouble with the device, 3 no answer in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl can set can0 --bitrate 500k --dbitrate 2M\n"
    "  vcictl can open can0\n"
    "  vcictl can send can0 123#DEADBEEF\n"
    "  vcictl can cyclic can0 123#11@10ms 124#22@20ms\n"
    "  vcictl can plan 123#11@10ms 124#22@20ms --bitrate 500k\n"
    "\n"
    "vcictl can COMMAND --help tells about one command.";

} // namespace

CanCommand::CanCommand(CLI::App& app) {
    app.footer(kFooter);
    app.require_subcommand(1);
    const auto add = [&](const char* name, const char* summary, const auto& make) {
        CLI::App* const part = AddPart(app, name, summary, "");
        parts_.push_back({part, make(*part)});
    };
    using Kind = CanStateCommand::Kind;
    const auto state = [](Kind kind) {
        return [kind](CLI::App& part) { return std::make_unique<CanStateCommand>(part, kind); };
    };
    add("set", "Set a channel's bit timing and mode",
        [](CLI::App& part) { return std::make_unique<CanSetCommand>(part); });
    add("open", "Open channels", state(Kind::Open));
    add("close", "Close channels", state(Kind::Close));
    add("mode", "Let a channel take part in the traffic, or listen only", state(Kind::Mode));
    add("ssp", "Set the secondary sample point of a channel", state(Kind::SecondPoint));
    add("term", "Switch the terminating resistors of a channel", state(Kind::Termination));
    add("send", "Send frames once",
        [](CLI::App& part) { return std::make_unique<CanSendCommand>(part); });
    add("cyclic", "Start and stop periodic frames",
        [](CLI::App& part) { return std::make_unique<CanCyclicCommand>(part); });
    add("plan", "Show how periodic frames are spread in time, without a device",
        [](CLI::App& part) { return std::make_unique<CanPlanCommand>(part); });
}

ExitStatus CanCommand::Run(Tool& tool) {
    for (const Part& part : parts_) {
        if (part.app->parsed()) {
            return part.command->Run(tool);
        }
    }
    return kExitTrouble; // not reached: one part is required
}
