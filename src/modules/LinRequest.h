#pragma once

#include "drivers/LinOperation.h"
#include "utils/WireFormat.h"

#include <cstdint>
#include <optional>
#include <span>

// What the requests of group 6 carry, in the records of the LIN driver. Pure functions, safe from
// any thread. Each Read... takes its part from the front of `request`, which fails where the bytes
// end.

// The protected identifier of a frame: the id, which is not masked, with the parity of its low six
// bits in bits 6 and 7.
uint8_t LinGetPID(uint8_t id);

// A slot of a table to download.
struct LinTableEntry {
    lin_tx_message message; // the header only
    uint16_t slot;          // milliseconds
};
LinTableEntry ReadLinTableEntry(WireReader& request);

// A response to set. A length above 8 stands in `message` and `length` all the same.
struct LinResponseEntry {
    lin_tx_message message; // for the driver of a responder
    uint8_t length;
    std::span<const uint8_t> data; // 8 bytes
};
LinResponseEntry ReadLinResponseEntry(WireReader& request);

// Makes the driver of a responder drop a response.
lin_tx_message LinNoResponse(uint8_t pid);

// A single frame, from its byte "response or not" on. Nothing where a value is out of range.
std::optional<lin_tx_message> ReadLinSingle(WireReader& request);

// A wake-up or a sleep, from `channel_status` on.
lin_operation ReadLinWakeup(WireReader& request);

lin_operation ReadLinDisturb(WireReader& request); // from `on_off` on
lin_operation ReadLinConfig(WireReader& request);  // from the bit rate on
