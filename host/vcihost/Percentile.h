#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// Of measured times. Pure functions, safe from any thread.
namespace vcihost {

// The value that `percent` of the sorted values do not exceed; the lower one of two in the middle.
// Nothing of no value.
std::optional<int64_t> Percentile(const std::vector<int64_t>& sorted, size_t percent);

// Of values in any order.
std::optional<int64_t> Median(std::vector<int64_t> values);

// How late frames were, or how else measured times are spread: all empty when there is none.
struct Spread {
    std::optional<int64_t> earliest; // the least of them
    std::optional<int64_t> median;
    std::optional<int64_t> p99;
    std::optional<int64_t> latest; // the largest

    static Spread Of(std::vector<int64_t> values);
};

} // namespace vcihost
