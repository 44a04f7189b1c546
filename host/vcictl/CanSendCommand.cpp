#include "vcictl/CanSendCommand.h"

#include "common/GlobalEnums.h"
#include "vcictl/CanRefusal.h"
#include "vcihost/DeviceTime.h"
#include "vcihost/Notation.h"

#include <limits>
#include <sstream>

#include <CLI/App.hpp>
#include <fmt/format.h>

namespace {

constexpr char kFooter[] =
    "All frames go in one request, 255 at most, a second request takes the next ones.\n"
    "The answer says that the device has handed them to its controller, not that\n"
    "another node has acknowledged them. With --no-answer each frame is a request of\n"
    "its own, which is answered only when it is refused; the tool asks for the time\n"
    "around them to learn of refusals.\n"
    "\n"
    "Examples:\n"
    "  vcictl can send can0 123#DEADBEEF 124#R4 125##1AABB\n"
    "  vcictl can send can0 123#11 --count 10 --gap 5ms\n"
    "  vcictl can send can0 - < frames.txt        one frame a line";

// One frame a line; empty lines and lines with # in front are skipped.
void ReadFrames(std::vector<vcihost::CanFrame>& frames) {
    std::istringstream input(ReadStandardInput("the frames"));
    std::string line;
    for (size_t number = 1; std::getline(input, line); ++number) {
        const size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        const size_t last = line.find_last_not_of(" \t\r");
        try {
            frames.push_back(vcihost::ParseCanFrame(line.substr(first, last - first + 1)));
        } catch (const vcihost::NotationError& error) {
            throw UsageError(fmt::format("standard input, line {}: {}", number, error.what()));
        }
    }
}

// Pauses between requests, not before the first.
class Pace {
  public:
    Pace(const vcihost::Waiter& waiter, std::chrono::nanoseconds gap)
        : waiter_(waiter), gap_(gap) {}

    void Next() {
        if (started_ && gap_.count() > 0) {
            waiter_.Pause(std::chrono::steady_clock::now() + gap_);
        }
        started_ = true;
    }

  private:
    const vcihost::Waiter& waiter_;
    std::chrono::nanoseconds gap_;
    bool started_ = false;
};

} // namespace

CanSendCommand::CanSendCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("CHANNEL", channel_, "can0 to can5")->required()->type_name("");
    app.add_option("FRAME", frames_, "Frames; - reads them from standard input, one a line")
        ->required()
        ->type_name("");
    app.add_flag("--no-answer", noAnswer_, "Send each frame by the request that is not answered");
    AddNumber(app, "--count", count_, std::numeric_limits<uint32_t>::max(),
              "Send the frames N times", "N", "1", 1);
    app.add_option("--gap", gap_, "Pause between two requests: 200us, 10ms, 1s")
        ->type_name("TIME")
        ->capture_default_str();
    AddWait(app, wait_);
}

std::vector<vcihost::CanFrame> CanSendCommand::Frames() const {
    std::vector<vcihost::CanFrame> frames;
    for (const std::string& text : frames_) {
        if (text == "-") {
            ReadFrames(frames);
        } else {
            frames.push_back(vcihost::ParseCanFrame(text));
        }
    }
    if (frames.empty()) {
        throw UsageError("no frame to send: standard input holds none");
    }
    return frames;
}

ExitStatus CanSendCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseCanChannel(channel_);
    const auto frames = Frames();
    return noAnswer_ ? SendSilently(tool, channel, frames) : SendBursts(tool, channel, frames);
}

ExitStatus CanSendCommand::SendBursts(Tool& tool, uint8_t channel,
                                      const std::vector<vcihost::CanFrame>& frames) const {
    Pace pace(tool.waiter, vcihost::ParseDuration("--gap", gap_));
    const auto requests = vcihost::CanBurstRequests(channel, frames);
    const auto transport = tool.Open();
    vcihost::Session session(*transport);
    uint64_t time = 0;
    for (uint64_t i = 0; i < count_; ++i) {
        for (const vcihost::Bytes& request : requests) {
            pace.Next();
            const AskResult result = Ask(session, request, wait_, CanSendAdvice(channel));
            if (result.status != kExitOk) {
                return result.status;
            }
            time = result.deviceTime;
        }
    }
    tool.out.Line(fmt::format("{}: {} in {}, device time {}", vcihost::CanChannelName(channel),
                              CountText(count_ * frames.size(), "frame", "frames"),
                              CountText(count_ * requests.size(), "request", "requests"),
                              vcihost::TimeText(time)));
    return kExitOk;
}

ExitStatus CanSendCommand::SendSilently(Tool& tool, uint8_t channel,
                                        const std::vector<vcihost::CanFrame>& frames) const {
    Pace pace(tool.waiter, vcihost::ParseDuration("--gap", gap_));
    const auto transport = tool.Open();
    std::optional<vcihost::NegativeResponse> refusal;
    vcihost::Session session(*transport, [&](const vcihost::Bytes& bytes) {
        const auto message = vcihost::ParseMessage(bytes);
        const auto other = message ? vcihost::NegativeResponse::From(*message) : std::nullopt;
        if (!refusal && other && other->gid == SEND_NET_FRAME_SERVICE_GID &&
            other->sid == vcihost::kCanSilentSid) {
            refusal = other;
        }
    });
    // Requests are treated in order. Once this one is answered, what an earlier host left has come.
    if (const AskResult fence = Ask(session, vcihost::SyncRequest(), wait_);
        fence.status != kExitOk) {
        return fence.status;
    }
    refusal.reset();
    for (uint64_t i = 0; i < count_; ++i) {
        for (size_t at = 0; at < frames.size(); ++at) {
            pace.Next();
            session.Tell(vcihost::CanSilentRequest(channel, frames[at]), wait_);
            if ((at + 1) % vcihost::kMostCanEntries != 0 && at + 1 < frames.size()) {
                continue;
            }
            // Once this one is answered, a refusal has come as well.
            const AskResult fence = Ask(session, vcihost::SyncRequest(), wait_);
            if (refusal) {
                ComplainOfRefusal(*refusal, CanSendAdvice(channel));
                return kExitRefused;
            }
            if (fence.status != kExitOk) {
                return fence.status;
            }
        }
    }
    tool.out.Line(fmt::format("{}: {}, none refused", vcihost::CanChannelName(channel),
                              CountText(count_ * frames.size(), "frame", "frames")));
    return kExitOk;
}
