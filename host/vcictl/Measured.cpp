#include "vcictl/Measured.h"

#include <fmt/format.h>

std::string Microseconds(const std::optional<int64_t>& nanoseconds) {
    constexpr double kMicrosecond = 1e3;
    return nanoseconds ? fmt::format("{:.1f}", static_cast<double>(*nanoseconds) / kMicrosecond)
                       : "-";
}
