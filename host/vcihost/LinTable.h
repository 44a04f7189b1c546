#pragma once

#include "vcihost/LinFrame.h"

#include <istream>

// The schedule table of a LIN commander. Pure functions, safe from any thread.
namespace vcihost {

// One entry: a header that is sent, and the time until the next one.
struct LinSlot {
    uint8_t id = 0;      // 0 to 63, without parity bits
    uint8_t length = 0;  // bytes of its response, 1 to 8
    uint16_t slotMs = 0; // at least 1
};

// The count of a request is one byte.
constexpr size_t kMostLinSlots = 255;

// A table in text: one entry a line, identifier in hex, length, slot in milliseconds, with blanks
// or commas between them; empty lines, and # for comments. An identifier may stand there several
// times. Throws NotationError, with `name` and the line, for a line that is none, and for a table
// of no entry or too many.
std::vector<LinSlot> ReadLinTable(std::istream& input, const std::string& name);

// The time that the device gives an entry at this bit rate, microseconds: what it asks for, but not
// less than a frame of its length and 15 bits.
uint32_t LinSlotUs(const LinSlot& slot, uint32_t bitrate);

} // namespace vcihost
