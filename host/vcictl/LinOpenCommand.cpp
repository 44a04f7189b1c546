#include "vcictl/LinOpenCommand.h"

#include "common/GlobalEnums.h"
#include "vcictl/LinRefusal.h"
#include "vcihost/Notation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "An open channel is closed and opened again. Role, table and responses stay as they were.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin open lin0\n"
    "  vcictl lin open lin1 --bitrate 9600 --version 1.3 --power external";

} // namespace

uint16_t ParseLinBitRate(const std::string& text) {
    constexpr auto kMost = std::numeric_limits<uint16_t>::max();
    const double rate = vcihost::ParseBitRate("--bitrate", text);
    if (rate > kMost || rate != std::floor(rate)) {
        throw UsageError(fmt::format("--bitrate: '{}' is no LIN bit rate; write whole bit/s up to "
                                     "{}, most buses have 9600 or 19200",
                                     text, kMost));
    }
    return static_cast<uint16_t>(rate);
}

LinOpenCommand::LinOpenCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("CHANNEL", channel_, "lin0 or lin1")->required()->type_name("");
    app.add_option("--bitrate", rate_, "Bit rate")->type_name("RATE")->capture_default_str();
    app.add_option("--version", version_, "Version of the protocol: 1.3, 2.0, 2.1, 2.2, j2602")
        ->check(CLI::IsMember({"1.3", "2.0", "2.1", "2.2", "j2602"}))
        ->type_name("VERSION")
        ->capture_default_str();
    app.add_option("--power", power_, "What feeds the bus: internal, external")
        ->check(CLI::IsMember({"internal", "external"}))
        ->type_name("SUPPLY")
        ->capture_default_str();
    AddNumber(app, "--wait", wait_, kMostMilliseconds, "Time limit of an answer", "MS", "1000");
}

ExitStatus LinOpenCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    vcihost::LinSetUp setUp;
    setUp.bitrate = ParseLinBitRate(rate_);
    const auto* const version =
        std::find(std::begin(vcihost::kLinVersions), std::end(vcihost::kLinVersions), version_);
    setUp.version = static_cast<uint8_t>(version - std::begin(vcihost::kLinVersions));
    setUp.supply =
        power_ == "internal" ? vcihost::LinSupply::Internal : vcihost::LinSupply::External;
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const ExitStatus status =
        AskPlain(session, vcihost::LinOpenRequest(channel, setUp), std::chrono::milliseconds(wait_),
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
