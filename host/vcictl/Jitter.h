#pragma once

#include "vcictl/ExitStatus.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What --max-jitter asks for.
struct JitterLimit {
    std::string text; // as it was typed
    std::chrono::nanoseconds time;

    // Nothing for an option that was not given, whose text is empty. Throws vcihost::NotationError.
    static std::optional<JitterLimit> Parse(const std::string& text);
};

// The frames of one line of a receipt.
struct JitterLine {
    std::string name;
    uint64_t due = 0;
    uint64_t seen = 0;
    uint64_t lost = 0;
    std::optional<int64_t> worst; // nanoseconds; nothing when it could not be measured
};

// How receipts differ.
struct JitterTerms {
    const char* before; // the microseconds of a line that is above the limit
    const char* after;
    bool needsMeasurement; // whether a line that could not be measured is at fault
};

// Tells on standard error of each line that has lost frames or is above the limit. kExitRefused
// when there is any.
ExitStatus CheckJitter(const std::vector<JitterLine>& lines, const JitterLimit& limit,
                       const JitterTerms& terms);
