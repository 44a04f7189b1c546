#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The date on which the program was compiled, as the compiler writes it: "Oct 23 2025", a day below
// 10 with a blank before it. gcc takes it from SOURCE_DATE_EPOCH where that is set, so that a build
// can be repeated byte for byte.
std::string_view CompileDate();

// 1 to 12 for a month's three English letters, 0 for anything else.
int getMonthNumber(const std::string& month);

// A date of that form as year * 10000 + month * 100 + day. What is no number counts as 0.
uint32_t GetBuildTime(std::string_view date = CompileDate());
