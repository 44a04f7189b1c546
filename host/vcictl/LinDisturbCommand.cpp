#include "vcictl/LinDisturbCommand.h"

#include "vcictl/LinRefusal.h"

#include <limits>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "What is disturbed, where and how long is in the terms of the device's LIN\n"
    "driver. The answer says that the channel is open, not that the driver can do it.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin disturb lin0 on --id 10 --type 1 --field 3 --offset 2 --length 1 --times 5\n"
    "  vcictl lin disturb lin0 off";

} // namespace

LinDisturbCommand::LinDisturbCommand(CLI::App& app) {
    constexpr auto kMostByte = std::numeric_limits<uint8_t>::max();
    app.footer(kFooter);
    AddLinChannel(app, channel_);
    app.add_option("STATE", state_, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}))
        ->type_name("");
    app.add_option("--id", id_, "Only frames of this identifier; else all")->type_name("ID");
    AddNumber(app, "--type", type_, kMostByte, "Kind of fault", "N", "0");
    AddNumber(app, "--field", field_, kMostByte, "Part of the frame", "N", "0");
    AddNumber(app, "--offset", offset_, kMostByte, "Place in that part", "N", "0");
    AddNumber(app, "--length", length_, kMostByte, "Length of the fault", "N", "0");
    timesOption_ = AddNumber(app, "--times", times_, std::numeric_limits<uint16_t>::max(),
                             "Only so many faults; else no limit", "N");
    AddWait(app, wait_);
}

vcihost::LinDisturb LinDisturbCommand::Disturb() const {
    vcihost::LinDisturb disturb;
    disturb.on = state_ == "on";
    if (!id_.empty()) {
        disturb.id = vcihost::ParseLinId(id_);
    }
    disturb.type = static_cast<uint8_t>(type_);
    disturb.length = static_cast<uint8_t>(length_);
    disturb.offset = static_cast<uint8_t>(offset_);
    disturb.field = static_cast<uint8_t>(field_);
    if (timesOption_->count() > 0) {
        disturb.times = static_cast<uint16_t>(times_);
    }
    return disturb;
}

ExitStatus LinDisturbCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    const vcihost::Bytes request = vcihost::LinDisturbRequest(channel, Disturb());
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const ExitStatus status = AskPlain(session, request, wait_, LinAdvice(channel));
    if (status == kExitOk) {
        tool.out.Line(
            fmt::format("{}: disturb {} accepted", vcihost::LinChannelName(channel), state_));
    }
    return status;
}
