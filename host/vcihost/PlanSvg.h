#pragma once

#include "vcihost/PlanReceipt.h"

#include <string>

namespace vcihost {

// A picture of one window, as an SVG document: for each channel a lane of planned frames, and below
// it, when `trace` and `receipt` are given, a lane of what was measured in the first window in
// which all tasks run. Frames that meet others are marked. The same input gives the same bytes. A
// pure function, safe from any thread.
std::string PlanSvg(const CanPlan& plan, const BusTrace* trace = nullptr,
                    const PlanReceipt* receipt = nullptr);

} // namespace vcihost
