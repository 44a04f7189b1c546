#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

// Measured values, which may be missing, as text and for programs.

// Nanoseconds in microseconds; a dash for what was not measured.
std::string Microseconds(const std::optional<int64_t>& nanoseconds);

// Null for what was not measured.
template <typename T> nlohmann::ordered_json OrNull(const std::optional<T>& value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(nullptr);
}
