#pragma once

#include "vcihost/Frame.h"

#include <optional>
#include <string>

namespace vcihost {

// The levels of all inputs, outputs and converter channels at one moment, which the device sends
// unasked. A plain value.
struct IoSample {
    uint64_t time;   // device time, nanoseconds
    uint8_t inputs;  // bit n: digital input n + 1 is high
    uint8_t outputs; // bit n: digital output n + 1 is high
    uint8_t trigger; // what caused it, as the driver says; 0 for the period
    uint16_t adc1;   // as the converter gives it
    uint16_t adc2;

    // Nothing for any other message.
    static std::optional<IoSample> From(const Message& message);

    // "in 1010 0000  out 01  adc  4660 22136  trigger 0x04"; levels from input or output 1 on.
    std::string Text() const;
};

} // namespace vcihost
