#pragma once

#include "vcihost/Hex.h"

#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

// Frames in words, for transcripts and for people. Pure functions, safe from any thread.
namespace vcihost {

// One value of a frame, for programs.
struct Field {
    std::string name;
    std::variant<uint64_t, std::string> value;
};

struct Words {
    std::string text; // one line
    std::vector<Field> fields;
};

// What a frame is.
struct Description : Words {
    // "request", "answer", "refusal", "upload" or "malformed".
    std::string kind;
};

// A frame that the host sends.
Description DescribeRequest(std::span<const uint8_t> frame);

// A message from the device, of any length and content.
Description DescribeMessage(std::span<const uint8_t> bytes);

// How one service reads. Each group has a table of these; Describe.cpp lists the tables.
struct ServiceWords {
    // From a payload; nothing for a payload that the service does not have.
    using Reader = std::optional<Words> (*)(std::span<const uint8_t> payload);

    uint8_t gid;
    uint8_t sid;
    bool upload; // the device sends it unasked
    const char* name;
    Reader request; // null for a service that only the device sends
    Reader message;
};

std::span<const ServiceWords> DeviceGroupWords(); // group 1
std::span<const ServiceWords> LinGroupWords();    // group 6
std::span<const ServiceWords> RecordGroupWords(); // group 9
std::span<const ServiceWords> SyncGroupWords();   // group 16
std::span<const ServiceWords> ReplayGroupWords(); // group 18
std::span<const ServiceWords> IoGroupWords();     // group 20
std::span<const ServiceWords> CanGroupWords();    // groups 21 and 22
std::span<const ServiceWords> ErrorGroupWords();  // group 104, without the negative response

} // namespace vcihost
