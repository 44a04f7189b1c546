#include "vcictl/CanStateCommand.h"

#include "vcictl/Ask.h"
#include "vcihost/CanRequest.h"
#include "vcihost/DeviceTime.h"

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kOpenFooter[] = "Examples:\n"
                               "  vcictl can open can0\n"
                               "  vcictl can open can0 can1";

constexpr char kCloseFooter[] = "Example:\n"
                                "  vcictl can close can0 can1";

constexpr char kModeFooter[] = "Examples:\n"
                               "  vcictl can mode can0 listen\n"
                               "  vcictl can mode can0 normal";

constexpr char kSecondPointFooter[] =
    "Set it on a closed channel, behind the bit timing; on an open one the device\n"
    "answers alike and changes nothing. A data bit rate of exactly 1 Mbit/s switches\n"
    "it off.\n"
    "\n"
    "Examples:\n"
    "  vcictl can ssp can0 16          offset of 16\n"
    "  vcictl can ssp can0 off";

constexpr char kTerminationFooter[] =
    "1 adds the first resistor, 2 the second; neither takes the other away. 0 takes\n"
    "both away.\n"
    "\n"
    "Examples:\n"
    "  vcictl can term can0 1\n"
    "  vcictl can term can0 0";

// The request for a channel, from its value.
vcihost::Bytes Request(CanStateCommand::Kind kind, uint8_t channel, const std::string& value) {
    if (kind == CanStateCommand::Kind::Mode) {
        return vcihost::CanModeRequest(channel, value == "listen");
    }
    if (kind == CanStateCommand::Kind::Termination) {
        return vcihost::CanTerminationRequest(channel, static_cast<uint8_t>(value.front() - '0'));
    }
    if (value == "off") {
        return vcihost::CanSecondPointRequest(channel, std::nullopt);
    }
    const auto offset = vcihost::ParseNumber(value, vcihost::kMostSecondPoint);
    if (!offset) {
        throw UsageError(fmt::format("OFFSET: '{}' is neither off nor a whole number from 0 to {}",
                                     value, vcihost::kMostSecondPoint));
    }
    return vcihost::CanSecondPointRequest(channel, static_cast<uint8_t>(*offset));
}

} // namespace

CanStateCommand::CanStateCommand(CLI::App& app, Kind kind) : kind_(kind) {
    if (kind == Kind::Open || kind == Kind::Close) {
        app.add_option("CHANNEL", channels_, "One channel or more")->required()->type_name("");
    } else {
        app.add_option("CHANNEL", channel_, "can0 to can5")->required()->type_name("");
    }
    switch (kind) {
    case Kind::Open:
        app.footer(kOpenFooter);
        break;
    case Kind::Close:
        app.footer(kCloseFooter);
        break;
    case Kind::Mode:
        app.footer(kModeFooter);
        app.add_option("MODE", value_, "normal or listen")
            ->required()
            ->check(CLI::IsMember({"normal", "listen"}))
            ->type_name("");
        break;
    case Kind::SecondPoint:
        app.footer(kSecondPointFooter);
        app.add_option("OFFSET", value_, "off, or 0 to 63")->required()->type_name("");
        break;
    case Kind::Termination:
        app.footer(kTerminationFooter);
        app.add_option("RESISTORS", value_, "0, 1 or 2")
            ->required()
            ->check(CLI::IsMember({"0", "1", "2"}))
            ->type_name("");
        break;
    }
    AddWait(app, wait_);
}

ExitStatus CanStateCommand::Run(Tool& tool) {
    if (kind_ == Kind::Open || kind_ == Kind::Close) {
        return SetStatus(tool, kind_ == Kind::Open);
    }
    return SetValue(tool);
}

ExitStatus CanStateCommand::SetStatus(Tool& tool, bool open) const {
    std::vector<uint8_t> channels;
    for (const std::string& name : channels_) {
        channels.push_back(vcihost::ParseCanChannel(name));
    }
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    for (const uint8_t channel : channels) {
        const AskResult result = Ask(session, vcihost::CanStatusRequest(channel, open), wait_);
        if (result.status != kExitOk) {
            return result.status;
        }
        // The answer says that the values are in range, not that the controller did it.
        tool.out.Line(fmt::format("{}: {} accepted, device time {}",
                                  vcihost::CanChannelName(channel), open ? "open" : "close",
                                  vcihost::TimeText(result.deviceTime)));
    }
    return kExitOk;
}

ExitStatus CanStateCommand::SetValue(Tool& tool) const {
    const uint8_t channel = vcihost::ParseCanChannel(channel_);
    const vcihost::Bytes request = Request(kind_, channel, value_);
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const ExitStatus status = AskPlain(session, request, wait_);
    if (status == kExitOk) {
        const char* const what = kind_ == Kind::Mode          ? "mode"
                                 : kind_ == Kind::SecondPoint ? "secondary sample point"
                                                              : "termination";
        tool.out.Line(
            fmt::format("{}: {} {} accepted", vcihost::CanChannelName(channel), what, value_));
    }
    return status;
}
