#include "vcictl/LinSendCommand.h"

#include "vcictl/LinRefusal.h"

#include <limits>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "Each frame is a request of its own. Times are in the units of the device's LIN\n"
    "driver. The protected identifier is made of the frame's own unless --pid gives\n"
    "one, with parity bits as they are to be.\n"
    "\n"
    "Examples:\n"
    "  vcictl lin send lin0 10#1122\n"
    "  vcictl lin send lin0 10#R2                     header alone\n"
    "  vcictl lin send lin0 10#1122 --pid 0x10        wrong parity\n"
    "  vcictl lin send lin0 10#1122 --break 20 --spaces 1,1,1,1,1,1,1,1,2";

} // namespace

LinSendCommand::LinSendCommand(CLI::App& app) {
    constexpr auto kMostByte = std::numeric_limits<uint8_t>::max();
    constexpr auto kMostRate = std::numeric_limits<uint32_t>::max();
    app.footer(kFooter);
    AddLinChannel(app, channel_);
    app.add_option("FRAME", frames_, "Frames, or headers alone")->required()->type_name("");
    pidOption_ = AddNumber(app, "--pid", pid_, kMostByte, "Protected identifier", "N");
    AddNumber(app, "--sync", sync_, kMostByte, "Sync byte", "N", "0x55");
    AddNumber(app, "--break", breakLength_, kMostByte, "Length of the break", "N", "13");
    AddNumber(app, "--break-delimiter", breakDelimiter_, kMostByte, "Length of its delimiter", "N",
              "1");
    AddNumber(app, "--inter-byte", interByte_, vcihost::kMostInterByte,
              "Space between the bytes of the header", "N", "0");
    app.add_option("--spaces", spaces_, "Spaces before each of 8 data bytes, and the checksum")
        ->delimiter(',')
        ->expected(vcihost::kLinSpaces)
        ->type_name("N,...");
    AddNumber(app, "--header-bitrate", headerRate_, kMostRate,
              "Bit rate of the header; 0: that of the channel", "N", "0");
    AddNumber(app, "--response-bitrate", responseRate_, kMostRate,
              "Bit rate of the response; 0: that of the channel", "N", "0");
    AddWait(app, wait_);
}

std::vector<vcihost::LinMessage> LinSendCommand::Messages() const {
    vcihost::LinMessage message;
    if (pidOption_->count() > 0) {
        message.pid = static_cast<uint8_t>(pid_);
    }
    message.sync = static_cast<uint8_t>(sync_);
    message.breakLength = static_cast<uint8_t>(breakLength_);
    message.breakDelimiter = static_cast<uint8_t>(breakDelimiter_);
    message.interByte = static_cast<uint8_t>(interByte_);
    message.headerRate = static_cast<uint32_t>(headerRate_);
    message.responseRate = static_cast<uint32_t>(responseRate_);
    for (size_t i = 0; i < spaces_.size(); ++i) {
        constexpr auto kMost = std::numeric_limits<uint8_t>::max();
        const auto space = vcihost::ParseNumber(spaces_[i], kMost);
        if (!space) {
            throw UsageError(
                fmt::format("--spaces: '{}' is no whole number from 0 to {}", spaces_[i], kMost));
        }
        message.spaces[i] = static_cast<uint8_t>(*space);
    }
    std::vector<vcihost::LinMessage> messages;
    for (const std::string& text : frames_) {
        message.frame = vcihost::ParseLinFrame(text);
        messages.push_back(message);
    }
    return messages;
}

ExitStatus LinSendCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseLinChannel(channel_);
    const auto messages = Messages();
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    for (const vcihost::LinMessage& message : messages) {
        const ExitStatus status =
            AskPlain(session, vcihost::LinSendRequest(channel, message), wait_, LinAdvice(channel));
        if (status != kExitOk) {
            return status;
        }
    }
    tool.out.Line(fmt::format("{}: {} handed to the driver", vcihost::LinChannelName(channel),
                              CountText(messages.size(), "frame", "frames")));
    return kExitOk;
}
