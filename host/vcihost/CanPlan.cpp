#include "vcihost/CanPlan.h"

#include "net/planner/OffsetPlanner.h"
#include "vcihost/CanRequest.h"
#include "vcihost/Notation.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint32_t kMicrosecondsPerMs = 1000;

// Flag bits of the identifier, by which the planner tells tasks apart.
constexpr uint32_t kExtendedBit = 0x80000000;
constexpr uint32_t kRemoteBit = 0x40000000;

net::OffsetPlanner::Task ToPlanner(const CanTask& task, size_t source,
                                   const net::CanBitRates& rates) {
    const CanFrame& frame = task.frame;
    net::OffsetPlanner::Task planned;
    planned.source = source;
    planned.id = frame.id | (frame.extended ? kExtendedBit : 0U) | (frame.remote ? kRemoteBit : 0U);
    planned.period_us = task.periodMs * kMicrosecondsPerMs;
    // A remote frame counts as long as the data that it asks for.
    planned.transmission_time_us = net::calculateFrameTransmissionTime(
        rates, frame.fd ? net::CAN_FD_Task : net::CAN_Task,
        frame.extended ? net::EXTENDED : net::STANDARD, static_cast<int>(frame.Length()));
    if (planned.transmission_time_us == 0) {
        throw NotationError(fmt::format("frame '{}' takes less than a microsecond at this bit "
                                        "rate; the device does not send it",
                                        CanFrameText(frame)));
    }
    return planned;
}

// The numbers of the tasks, request by request.
std::vector<std::vector<size_t>> Requests(std::span<const CanTask> tasks) {
    std::vector<std::vector<size_t>> requests;
    std::vector<bool> taken(tasks.size());
    for (size_t first = 0; first < tasks.size(); ++first) {
        if (taken[first]) {
            continue;
        }
        requests.emplace_back();
        for (size_t i = first; i < tasks.size(); ++i) {
            if (tasks[i].channel != tasks[first].channel) {
                continue;
            }
            if (requests.back().size() == kMostCanEntries) {
                requests.emplace_back();
            }
            requests.back().push_back(i);
            taken[i] = true;
        }
    }
    return requests;
}

} // namespace

std::vector<uint8_t> CanPlan::Channels() const {
    std::set<uint8_t> channels;
    for (const PlannedTask& planned : tasks) {
        channels.insert(planned.task.channel);
    }
    return {channels.begin(), channels.end()};
}

double CanPlan::Load(uint8_t channel) const {
    double load = 0;
    for (const PlannedTask& planned : tasks) {
        if (planned.task.channel == channel) {
            load += static_cast<double>(planned.durationUs) / planned.periodUs;
        }
    }
    return load;
}

CanPlan PlanCanTasks(std::span<const CanTask> tasks, const net::CanBitRates& rates) {
    net::OffsetPlanner planner;
    CanPlan plan;
    for (const auto& request : Requests(tasks)) {
        std::vector<net::OffsetPlanner::Task> batch;
        for (const size_t source : request) {
            batch.push_back(ToPlanner(tasks[source], source, rates));
            planner.Remove(batch.back().id);
        }
        planner.Plan(
            batch, [] { return uint64_t{0}; },
            [&](const net::OffsetPlanner::Task& planned) {
                plan.tasks.push_back({tasks[planned.source], planned.period_us,
                                      planned.transmission_time_us, planned.offset_us,
                                      planned.conflicts, planned.kernel_offset_us});
            });
    }
    plan.windowUs = planner.WindowUs();
    return plan;
}

} // namespace vcihost
