#include "vcictl/CanSetCommand.h"

#include "vcictl/Ask.h"
#include "vcictl/JsonText.h"
#include "vcihost/Notation.h"

#include <limits>
#include <sstream>
#include <tuple>

#include <CLI/App.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

constexpr char kFooter[] =
    "With --dbitrate the channel becomes a CAN FD channel. The timing is chosen for\n"
    "the smallest error of the bit rate, then for the sample point; the clock is 40\n"
    "MHz. An error above 0.5 % is refused. Defaults: sample point 87.5 % up to 500k,\n"
    "80 % up to 800k, 75 % above, in both phases; jump width half of segment 2, as\n"
    "Linux has it.\n"
    "\n"
    "Close the channel first: on an open one the values are accepted and its timing\n"
    "stays.\n"
    "\n"
    "Examples:\n"
    "  vcictl can set can0 --bitrate 500k\n"
    "  vcictl can set can0 --bitrate 500k --dbitrate 2M --dsample-point 80%\n"
    "  vcictl can set can0 --timing 1,10,69,10 --listen\n"
    "  vcictl can set can0 --bitrate 83.333k --dry-run    only show the timing";

vcihost::BitTimingWish Wish(const std::string& prefix, const std::string& rate,
                            const std::string& samplePoint, uint64_t sjw) {
    vcihost::BitTimingWish wish;
    wish.rate = vcihost::ParseBitRate("--" + prefix + "bitrate", rate);
    if (!samplePoint.empty()) {
        wish.samplePoint = vcihost::ParseSamplePoint("--" + prefix + "sample-point", samplePoint);
    }
    if (sjw != 0) {
        wish.sjw = static_cast<uint8_t>(sjw);
    }
    return wish;
}

vcihost::BitTiming TakeTiming(const std::vector<uint8_t>& values, size_t at,
                              const vcihost::BitTimingLimits& limits) {
    vcihost::BitTiming timing;
    timing.brp = values[at];
    timing.sjw = values[at + 1];
    timing.seg1 = values[at + 2];
    timing.seg2 = values[at + 3];
    vcihost::CheckBitTiming(timing, limits);
    return timing;
}

vcihost::CanTiming ParseTiming(const std::string& text) {
    constexpr size_t kPhaseValues = 4;
    std::vector<uint8_t> values;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) {
        const auto value = vcihost::ParseNumber(word, std::numeric_limits<uint8_t>::max());
        if (!value) {
            throw UsageError(fmt::format("--timing: '{}' is no whole number from 0 to 255", word));
        }
        values.push_back(static_cast<uint8_t>(*value));
    }
    if (values.size() != kPhaseValues && values.size() != 2 * kPhaseValues) {
        throw UsageError(fmt::format("--timing: {} numbers; write brp,sjw,seg1,seg2 once, or twice "
                                     "for CAN FD",
                                     values.size()));
    }
    vcihost::CanTiming timing;
    timing.nominal = TakeTiming(values, 0, vcihost::kNominalLimits);
    if (values.size() > kPhaseValues) {
        timing.data = TakeTiming(values, kPhaseValues, vcihost::kDataLimits);
    }
    return timing;
}

// In percent; 0 where no rate was asked for.
double RateError(const vcihost::BitTiming& timing, const std::string& asked) {
    if (asked.empty()) {
        return 0;
    }
    const double rate = vcihost::ParseBitRate("", asked);
    return (timing.Rate() - rate) / rate * 100;
}

std::string PhaseLine(const char* name, const vcihost::BitTiming& timing,
                      const std::string& asked) {
    const std::string error =
        asked.empty() ? "" : fmt::format(", error {:.3f} %", RateError(timing, asked));
    return fmt::format("  {:<8} {:.0f} bit/s{}, sample point {:.1f} %, brp {} sjw {} seg1 {} "
                       "seg2 {}",
                       name, timing.Rate(), error, timing.SamplePoint() * 100, timing.brp,
                       timing.sjw, timing.seg1, timing.seg2);
}

nlohmann::ordered_json PhaseJson(const vcihost::BitTiming& timing, const std::string& asked) {
    return {{"bitrate", timing.Rate()},
            {"error_percent", RateError(timing, asked)},
            {"sample_point", timing.SamplePoint()},
            {"brp", timing.brp},
            {"sjw", timing.sjw},
            {"seg1", timing.seg1},
            {"seg2", timing.seg2}};
}

} // namespace

CanSetCommand::CanSetCommand(CLI::App& app) {
    app.footer(kFooter);
    app.add_option("CHANNEL", channel_, "can0 to can5")->required()->type_name("");
    CLI::Option* const timing =
        app.add_option("--timing", timing_, "brp,sjw,seg1,seg2, and the same of the data phase")
            ->type_name("LIST");
    const auto addPhase = [&](Phase& phase, const std::string& prefix, const std::string& name,
                              const vcihost::BitTimingLimits& limits) {
        CLI::Option* const rate = app.add_option("--" + prefix + "bitrate", phase.rate,
                                                 name + " bit rate: 500k, 2M, 500000")
                                      ->type_name("RATE")
                                      ->excludes(timing);
        app.add_option("--" + prefix + "sample-point", phase.samplePoint,
                       name + " sample point: 80%, 0.8")
            ->type_name("POINT")
            ->needs(rate);
        AddNumber(app, "--" + prefix + "sjw", phase.sjw, limits.sjw, name + " jump width", "N", "",
                  1)
            ->needs(rate);
        return rate;
    };
    CLI::Option* const nominal = addPhase(nominal_, "", "Nominal", vcihost::kNominalLimits);
    addPhase(data_, "d", "Data", vcihost::kDataLimits)->needs(nominal);
    app.add_flag("--listen,--listen-only", listen_, "Listen only: neither send nor acknowledge");
    app.add_flag("--dry-run", dryRun_, "Show the timing, without a device");
    app.add_flag("--json", json_, "Print a JSON object");
    AddWait(app, wait_);
}

vcihost::CanTiming CanSetCommand::Choose() const {
    vcihost::CanTiming timing;
    if (!timing_.empty()) {
        timing = ParseTiming(timing_);
    } else if (nominal_.rate.empty()) {
        throw UsageError("give --bitrate or --timing");
    } else {
        const auto nominal = Wish("", nominal_.rate, nominal_.samplePoint, nominal_.sjw);
        if (data_.rate.empty()) {
            timing.nominal = vcihost::ChooseBitTiming(nominal, vcihost::kNominalLimits);
        } else {
            std::tie(timing.nominal, timing.data) = vcihost::ChooseFdBitTiming(
                nominal, Wish("d", data_.rate, data_.samplePoint, data_.sjw));
        }
    }
    timing.listen = listen_;
    return timing;
}

ExitStatus CanSetCommand::Run(Tool& tool) {
    const uint8_t channel = vcihost::ParseCanChannel(channel_);
    const vcihost::CanTiming timing = Choose();
    if (!dryRun_) {
        const auto transport = tool.Open();
        vcihost::Session session(*transport);
        const ExitStatus status =
            AskPlain(session, vcihost::CanTimingRequest(channel, timing), wait_);
        if (status != kExitOk) {
            return status;
        }
    }
    Print(tool.out, channel, timing);
    return kExitOk;
}

void CanSetCommand::Print(Output& out, uint8_t channel, const vcihost::CanTiming& timing) const {
    if (json_) {
        nlohmann::ordered_json object{{"channel", vcihost::CanChannelName(channel)},
                                      {"fd", timing.data.has_value()},
                                      {"listen", timing.listen},
                                      {"nominal", PhaseJson(timing.nominal, nominal_.rate)}};
        if (timing.data) {
            object["data"] = PhaseJson(*timing.data, data_.rate);
        }
        out.Line(JsonText(object));
        return;
    }
    // No more than accepted: a channel that is open does not take its timing.
    out.Line(fmt::format("{}: {}, {}{}", vcihost::CanChannelName(channel),
                         timing.data ? "CAN FD" : "classic",
                         timing.listen ? "listen-only" : "normal", dryRun_ ? "" : ", accepted"));
    out.Line(PhaseLine("nominal", timing.nominal, nominal_.rate));
    if (timing.data) {
        out.Line(PhaseLine("data", *timing.data, data_.rate));
    }
}
