#pragma once

#include "vcictl/Command.h"
#include "vcihost/PlanReceipt.h"

#include <nlohmann/json_fwd.hpp>

// The bit rates for a plan, as a channel that is set to them has them. `dataRate` may be empty when
// no task is CAN FD. Throws UsageError, vcihost::NotationError.
net::CanBitRates PlanRates(const std::string& rate, const std::string& dataRate,
                           const std::vector<vcihost::CanTask>& tasks);

// A plan as a table.
void PrintPlan(Output& out, const vcihost::CanPlan& plan);

// What was measured beside it, as a second table.
void PrintReceipt(Output& out, const vcihost::CanPlan& plan, const vcihost::PlanReceipt& receipt);

// Both as one object; `receipt` may be null.
nlohmann::ordered_json PlanJson(const vcihost::CanPlan& plan, const vcihost::PlanReceipt* receipt);
