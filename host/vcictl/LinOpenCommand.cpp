#include "vcictl/LinOpenCommand.h"

#include "common/GlobalEnums.h"
#include "vcictl/LinRefusal.h"

#include <algorithm>

#include <CLI/App.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace {

constexpr char kFooter[] =
    "An open channel is closed and opened again. Role, table and responses stay as\n"
    "they were.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin open lin0\n"
    "  vcictl lin open lin1 --bitrate 9600 --version 1.3 --power external";

} // namespace

LinOpenCommand::LinOpenCommand(CLI::App& app) {
    app.footer(kFooter);
    AddLinChannel(app, channel_);
    app.add_option("--bitrate", rate_, "Bit rate")->type_name("RATE")->capture_default_str();
    const std::vector<std::string> versions(std::begin(vcihost::kLinVersions),
                                            std::end(vcihost::kLinVersions));
    app.add_option("--version", version_,
                   fmt::format("Version of the protocol: {}", fmt::join(versions, ", ")))
        ->check(CLI::IsMember(versions))
        ->type_name("VERSION")
        ->capture_default_str();
    app.add_option("--power", power_, "What feeds the bus: internal, external")
        ->check(CLI::IsMember({"internal", "external"}))
        ->type_name("SUPPLY")
        ->capture_default_str();
    AddWait(app, wait_);
}

ExitStatus LinOpenCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    vcihost::LinSetUp setUp;
    setUp.bitrate = vcihost::ParseLinBitRate("--bitrate", rate_);
    const auto* const version =
        std::find(std::begin(vcihost::kLinVersions), std::end(vcihost::kLinVersions), version_);
    setUp.version = static_cast<uint8_t>(version - std::begin(vcihost::kLinVersions));
    setUp.supply =
        power_ == "internal" ? vcihost::LinSupply::Internal : vcihost::LinSupply::External;
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const ExitStatus status =
        AskPlain(session, vcihost::LinOpenRequest(channel, setUp), wait_,
                 LinAdvice(channel, {{ERROR_GET_CHANNEL_STATE,
                                      "its device or socket does not open; the device's console "
                                      "says more"}}));
    if (status == kExitOk) {
        tool.out.Line(fmt::format("{}: open, {} bit/s, LIN {}, {} supply",
                                  vcihost::LinChannelName(channel), setUp.bitrate, version_,
                                  power_));
    }
    return status;
}
