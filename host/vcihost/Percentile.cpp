#include "vcihost/Percentile.h"

#include <algorithm>

namespace vcihost {

std::optional<int64_t> Percentile(const std::vector<int64_t>& sorted, size_t percent) {
    if (sorted.empty()) {
        return std::nullopt;
    }
    const size_t rank = (sorted.size() * percent + 99) / 100;
    return sorted[std::max<size_t>(rank, 1) - 1];
}

std::optional<int64_t> Median(std::vector<int64_t> values) {
    std::sort(values.begin(), values.end());
    return Percentile(values, 50);
}

Spread Spread::Of(std::vector<int64_t> values) {
    std::sort(values.begin(), values.end());
    constexpr size_t kMost = 99;
    return {Percentile(values, 0), Percentile(values, 50), Percentile(values, kMost),
            Percentile(values, 100)};
}

} // namespace vcihost
