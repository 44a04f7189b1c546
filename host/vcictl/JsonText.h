#pragma once

#include <string>

#include <nlohmann/json.hpp>

// The value on one line. Bytes that are no UTF-8, as a file's name may have them, become U+FFFD.
std::string JsonText(const nlohmann::ordered_json& value);
