#include "vcihost/LinTable.h"

#include "vcihost/Notation.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr char kForm[] = "write one entry a line: identifier in hex, length, slot in milliseconds";

constexpr uint32_t kMicrosecondsPerMs = 1000;
constexpr uint32_t kMicrosecondsPerSecond = 1'000'000;

// Bits of a frame: 44 around its bytes, 10 for each byte; then what a slot has to spare.
constexpr uint32_t kBitsAround = 44;
constexpr uint32_t kBitsPerByte = 10;
constexpr uint32_t kSpareBits = 15;

uint64_t ParsePart(const std::string& text, const char* what, uint64_t most) {
    const auto number = ParseNumber(text, most);
    if (!number || *number == 0) {
        throw NotationError(
            fmt::format("{} '{}' is no whole number from 1 to {}", what, text, most));
    }
    return *number;
}

LinSlot ParseSlot(const std::string& line) {
    std::istringstream words(line);
    std::string id;
    std::string length;
    std::string slot;
    std::string more;
    if (!(words >> id >> length >> slot) || words >> more) {
        throw NotationError(std::string("not three values; ") + kForm);
    }
    LinSlot entry;
    entry.id = ParseLinId(id);
    entry.length = static_cast<uint8_t>(ParsePart(length, "length", kMostLinBytes));
    entry.slotMs = static_cast<uint16_t>(
        ParsePart(slot, "slot", std::numeric_limits<decltype(entry.slotMs)>::max()));
    return entry;
}

} // namespace

std::vector<LinSlot> ReadLinTable(std::istream& input, const std::string& name) {
    std::vector<LinSlot> table;
    std::string line;
    for (size_t number = 1; std::getline(input, line); ++number) {
        line.resize(std::min(line.find('#'), line.size()));
        std::replace(line.begin(), line.end(), ',', ' ');
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        if (table.size() == kMostLinSlots) {
            throw NotationError(fmt::format("{}, line {}: a table has at most {} entries; leave "
                                            "the rest out",
                                            name, number, kMostLinSlots));
        }
        try {
            table.push_back(ParseSlot(line));
        } catch (const NotationError& error) {
            throw NotationError(fmt::format("{}, line {}: {}", name, number, error.what()));
        }
    }
    if (table.empty()) {
        throw NotationError(fmt::format("{} holds no entry; {}", name, kForm));
    }
    return table;
}

uint32_t LinSlotUs(const LinSlot& slot, uint32_t bitrate) {
    const uint32_t wanted = slot.slotMs * kMicrosecondsPerMs;
    if (bitrate == 0) {
        return wanted;
    }
    const uint32_t bits = kBitsAround + slot.length * kBitsPerByte + kSpareBits;
    return std::max(wanted, bits * kMicrosecondsPerSecond / bitrate);
}

} // namespace vcihost
