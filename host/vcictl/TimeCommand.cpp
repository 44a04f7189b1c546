#include "vcictl/TimeCommand.h"

#include "vcictl/Ask.h"
#include "vcictl/JsonText.h"
#include "vcihost/DeviceTime.h"

#include <limits>

#include <CLI/App.hpp>
#include <fmt/chrono.h>
#include <nlohmann/json.hpp>

namespace {

constexpr double kMillisecond = 1e6; // nanoseconds
constexpr uint64_t kSecond = 1'000'000'000;

constexpr char kFooter[] =
    "Asks for the device time and prints it beside the host's clock at the moment\n"
    "when the answer came, and the round trip. Behind more than one sample stands the\n"
    "rate of the device's clock against the host's, and how far the round trips leave\n"
    "it uncertain. Ctrl-C ends the sampling and prints the rate.\n"
    "\n"
    "Exit status: 0 done, 1 the device refused, 2 wrong usage or trouble with the\n"
    "device, 3 no answer in time.\n"
    "\n"
    "Examples:\n"
    "  vcictl time                                once\n"
    "  vcictl time --count 60                     a minute, and the rate\n"
    "  vcictl time --count 2 --interval 5000 --json";

} // namespace

TimeCommand::TimeCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_flag("--json", json_, "Print one JSON object a line");
    AddNumber(app, "--count", count_, std::numeric_limits<uint32_t>::max(),
              "Ask N times; 0: until Ctrl-C", "N", "1");
    AddNumber(app, "--interval", interval_, kMostMilliseconds, "Time from one request to the next",
              "MS", "1000");
    AddWait(app, wait_);
}

ExitStatus TimeCommand::Run(Tool& tool) {
    const auto transport = tool.Open();
    vcihost::Deadline next = std::chrono::steady_clock::now();
    try {
        for (uint64_t i = 0; count_ == 0 || i < count_; ++i) {
            tool.waiter.Pause(next);
            next += std::chrono::milliseconds(interval_);
            const ExitStatus status = Sample(tool, *transport);
            if (status != kExitOk) {
                return status;
            }
        }
    } catch (const vcihost::Interrupted&) {
        PrintRate(tool.out);
        throw;
    }
    PrintRate(tool.out);
    return kExitOk;
}

ExitStatus TimeCommand::Sample(Tool& tool, vcihost::Transport& transport) {
    vcihost::Session session(transport);
    const auto answer = Ask(session, vcihost::SyncRequest(), wait_);
    const uint64_t host = WallClock();
    if (answer.status != kExitOk) {
        return answer.status;
    }
    const auto roundTrip =
        std::chrono::duration_cast<std::chrono::nanoseconds>(answer.received - answer.sent);
    rate_.Add(answer.deviceTime, answer.sent, answer.received);
    PrintSample(tool.out, answer.deviceTime, host, static_cast<uint64_t>(roundTrip.count()));
    return kExitOk;
}

void TimeCommand::PrintSample(Output& out, uint64_t device, uint64_t host,
                              uint64_t roundTrip) const {
    if (json_) {
        out.Line(
            JsonText({{"device_ns", device}, {"host_ns", host}, {"round_trip_ns", roundTrip}}));
        return;
    }
    out.Line(fmt::format("device {}   host {:%Y-%m-%dT%H:%M:%S}.{:09}Z   round trip {:.3f} ms",
                         vcihost::TimeText(device),
                         fmt::gmtime(static_cast<std::time_t>(host / kSecond)), host % kSecond,
                         static_cast<double>(roundTrip) / kMillisecond));
}

void TimeCommand::PrintRate(Output& out) const {
    if (rate_.Count() < 2) {
        return;
    }
    const auto rate = rate_.Measure();
    if (json_) {
        nlohmann::ordered_json line{{"samples", rate_.Count()}};
        line["seconds"] = rate ? nlohmann::ordered_json(rate->seconds) : nullptr;
        line["rate_ppm"] = rate ? nlohmann::ordered_json(rate->ppm) : nullptr;
        line["uncertainty_ppm"] = rate ? nlohmann::ordered_json(rate->uncertainty) : nullptr;
        out.Line(JsonText(line));
    } else if (rate) {
        out.Line(fmt::format("rate {:+.1f} ppm against the host's clock, within {:.1f} ppm, over "
                             "{:.3f} s and {} samples",
                             rate->ppm, rate->uncertainty, rate->seconds, rate_.Count()));
    } else {
        out.Line("rate not measured");
    }
}
