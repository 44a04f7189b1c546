#pragma once

#include "vcihost/Hex.h"

#include <cstdint>
#include <span>

// Service sections of group 20, digital inputs and outputs and the analogue converter. Pure
// functions, safe from any thread.
namespace vcihost {

// Service ids of group 20.
constexpr uint8_t kIoOpenSid = 1;
constexpr uint8_t kIoOutputSid = 2;
constexpr uint8_t kIoPeriodSid = 3;
constexpr uint8_t kIoSampleSid = 4; // the device sends it unasked
constexpr uint8_t kIoTriggerSid = 7;

constexpr uint8_t kIoOutputs = 2; // of the device, and the most that a request may name

// One digital output, 1 or 2, and its level.
struct IoOutput {
    uint8_t number;
    bool high;
};

// Switches the periodic samples on, at a period of 1000, or off, at none.
Bytes IoOpenRequest(bool on);
// Sets up to two outputs, in order.
Bytes IoOutputRequest(std::span<const IoOutput> outputs);
// Sets the period and leaves the switch; the unit is the board's.
Bytes IoPeriodRequest(uint16_t period);
// Switches the samples at events on or off, all of them at once.
Bytes IoTriggerRequest(bool on);

} // namespace vcihost
