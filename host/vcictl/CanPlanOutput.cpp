#include "vcictl/CanPlanOutput.h"

#include "vcictl/Measured.h"
#include "vcihost/BitTiming.h"
#include "vcihost/CanChannel.h"
#include "vcihost/Notation.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

// The columns of both tables.
constexpr char kPlanRow[] = "{:<5} {:<10} {:>10} {:>9} {:>10} {:>9} {:>9}";
constexpr char kReceiptRow[] = "{:<5} {:<10} {:>6} {:>6} {:>5} {:>8} {:>9} {:>10} {:>7} {:>7} "
                               "{:>7} {:>7} {:>10}";

nlohmann::ordered_json ReceiptJson(const vcihost::TaskReceipt& receipt) {
    return {{"due", OrNull(receipt.due)},
            {"seen", receipt.seen},
            {"lost", receipt.lost},
            {"first_off_grid_ns", OrNull(receipt.firstOffGrid)},
            {"offset_ns", OrNull(receipt.offset)},
            {"period_ns", OrNull(receipt.period)},
            {"spacing_median_ns", OrNull(receipt.spacingMedian)},
            {"spacing_p99_ns", OrNull(receipt.spacingP99)},
            {"spacing_max_ns", OrNull(receipt.spacingMax)},
            {"worst_wait_ns", OrNull(receipt.worstWait)},
            {"collisions", receipt.collisions}};
}

} // namespace

net::CanBitRates PlanRates(const std::string& rate, const std::string& dataRate,
                           const std::vector<vcihost::CanTask>& tasks) {
    net::CanBitRates rates;
    const auto planned = [](const char* name, const std::string& text,
                            const vcihost::BitTimingLimits& limits) {
        vcihost::BitTimingWish wish;
        wish.rate = vcihost::ParseBitRate(name, text);
        return vcihost::ChooseBitTiming(wish, limits).PlannedRate();
    };
    rates.arbitration = planned("--bitrate", rate, vcihost::kNominalLimits);
    if (!dataRate.empty()) {
        rates.data = planned("--dbitrate", dataRate, vcihost::kDataLimits);
    } else if (std::any_of(tasks.begin(), tasks.end(),
                           [](const vcihost::CanTask& task) { return task.frame.fd; })) {
        throw UsageError("there are CAN FD frames: give --dbitrate as well");
    }
    return rates;
}

void PrintPlan(Output& out, const vcihost::CanPlan& plan) {
    out.Line(fmt::format(kPlanRow, "bus", "id", "period us", "frame us", "offset us", "first us",
                         "conflicts"));
    for (const vcihost::PlannedTask& planned : plan.tasks) {
        out.Line(fmt::format(kPlanRow, vcihost::CanChannelName(planned.task.channel),
                             vcihost::CanIdText(planned.task.frame), planned.periodUs,
                             planned.durationUs, planned.offsetUs, planned.firstDelayUs,
                             planned.conflicts));
    }
    out.Line(fmt::format("window {} us", plan.windowUs));
    for (const uint8_t channel : plan.Channels()) {
        out.Line(fmt::format("{} load {:.2f} %", vcihost::CanChannelName(channel),
                             plan.Load(channel) * 100));
    }
}

void PrintReceipt(Output& out, const vcihost::CanPlan& plan, const vcihost::PlanReceipt& receipt) {
    out.Line("");
    out.Line("measured, times in us; - is not measured");
    out.Line(fmt::format(kReceiptRow, "bus", "id", "due", "seen", "lost", "1st off", "offset",
                         "period", "median", "p99", "max", "wait", "collisions"));
    for (size_t i = 0; i < plan.tasks.size(); ++i) {
        const vcihost::CanTask& task = plan.tasks[i].task;
        const vcihost::TaskReceipt& measured = receipt.tasks[i];
        out.Line(fmt::format(
            kReceiptRow, vcihost::CanChannelName(task.channel), vcihost::CanIdText(task.frame),
            measured.due ? std::to_string(*measured.due) : "-", measured.seen, measured.lost,
            Microseconds(measured.firstOffGrid), Microseconds(measured.offset),
            Microseconds(measured.period), Microseconds(measured.spacingMedian),
            Microseconds(measured.spacingP99), Microseconds(measured.spacingMax),
            Microseconds(measured.worstWait), measured.collisions));
    }
    for (const auto& [channel, load] : receipt.load) {
        out.Line(fmt::format("{} load {:.2f} %", vcihost::CanChannelName(channel), load * 100));
    }
    if (receipt.lostEntries > 0) {
        out.Line(fmt::format("the trace lost {} frames: due, lost and spacing may be wrong",
                             receipt.lostEntries));
    }
}

nlohmann::ordered_json PlanJson(const vcihost::CanPlan& plan, const vcihost::PlanReceipt* receipt) {
    nlohmann::ordered_json object{{"window_us", plan.windowUs}};
    for (const uint8_t channel : plan.Channels()) {
        object["load"][vcihost::CanChannelName(channel)] = plan.Load(channel);
    }
    object["tasks"] = nlohmann::ordered_json::array();
    for (size_t i = 0; i < plan.tasks.size(); ++i) {
        const vcihost::PlannedTask& planned = plan.tasks[i];
        nlohmann::ordered_json task{{"channel", vcihost::CanChannelName(planned.task.channel)},
                                    {"id", vcihost::CanIdText(planned.task.frame)},
                                    {"period_us", planned.periodUs},
                                    {"frame_us", planned.durationUs},
                                    {"offset_us", planned.offsetUs},
                                    {"first_us", planned.firstDelayUs},
                                    {"conflicts", planned.conflicts}};
        if (receipt != nullptr) {
            task["measured"] = ReceiptJson(receipt->tasks[i]);
        }
        object["tasks"].push_back(std::move(task));
    }
    if (receipt != nullptr) {
        object["base_ns"] = OrNull(receipt->base);
        object["measured_load"] = nlohmann::ordered_json::object();
        for (const auto& [channel, load] : receipt->load) {
            object["measured_load"][vcihost::CanChannelName(channel)] = load;
        }
        object["trace_lost"] = receipt->lostEntries;
    }
    return object;
}
