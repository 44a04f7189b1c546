#include "vcictl/LinWakeCommand.h"

#include "common/GlobalEnums.h"
#include "vcictl/LinRefusal.h"
#include "vcihost/LinRequest.h"

#include <limits>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] = "Interval and length are in the units of the device's LIN driver.\n"
                           "\n"
                           "Examples:\n"
                           "  vcictl lin wake lin1\n"
                           "  vcictl lin wake lin1 --count 3 --interval 150";

} // namespace

LinWakeCommand::LinWakeCommand(CLI::App& app) {
    constexpr auto kMostWord = std::numeric_limits<uint16_t>::max();
    app.footer(kFooter);
    AddLinChannel(app, channel_);
    AddNumber(app, "--count", count_, std::numeric_limits<uint8_t>::max(), "Signals", "N", "1");
    AddNumber(app, "--interval", interval_, kMostWord, "Time between signals", "N", "0");
    AddNumber(app, "--length", length_, kMostWord, "Length of a signal", "N", "0");
    AddWait(app, wait_);
}

ExitStatus LinWakeCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    const std::string name = vcihost::LinChannelName(channel);
    vcihost::LinWakeup wakeup;
    wakeup.repeats = static_cast<uint8_t>(count_);
    wakeup.interval = static_cast<uint16_t>(interval_);
    wakeup.length = static_cast<uint16_t>(length_);
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    const ExitStatus status = AskPlain(
        session, vcihost::LinWakeRequest(channel, wakeup), wait_,
        LinAdvice(channel, {{ERROR_GET_CHANNEL_STATE,
                             fmt::format("{0} is a commander, which can only send the bus to "
                                         "sleep: vcictl lin role {0} responder",
                                         name)}}));
    if (status == kExitOk) {
        tool.out.Line(name + ": wake-up accepted");
    }
    return status;
}
