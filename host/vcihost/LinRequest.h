#pragma once

#include "vcihost/LinChannel.h"
#include "vcihost/LinTable.h"

#include <array>

// Service sections of group 6, LIN. Channels are 0 and 1. Pure functions, safe from any thread.
namespace vcihost {

// Service ids of group 6.
constexpr uint8_t kLinTableSid = 1;
constexpr uint8_t kLinRoleSid = 2;
constexpr uint8_t kLinResponseSid = 3;
constexpr uint8_t kLinResponseDeleteSid = 4;
constexpr uint8_t kLinClearSid = 5;
constexpr uint8_t kLinScheduleSid = 6;
constexpr uint8_t kLinSendSid = 7;
constexpr uint8_t kLinSleepSid = 8;
constexpr uint8_t kLinDisturbSid = 9;
constexpr uint8_t kLinChannelSid = 10; // opens and closes it

// The versions of the protocol by their numbers in a request.
constexpr const char* kLinVersions[] = {"1.3", "2.0", "2.1", "2.2", "j2602"};

// What feeds the bus.
enum class LinSupply : uint8_t {
    Internal = 0,
    External = 1,
};

// What a channel is opened with.
struct LinSetUp {
    uint16_t bitrate = 19200;
    uint8_t version = 2; // index of kLinVersions
    LinSupply supply = LinSupply::Internal;
};

Bytes LinOpenRequest(uint8_t channel, const LinSetUp& setUp);
Bytes LinCloseRequest(uint8_t channel);
Bytes LinRoleRequest(uint8_t channel, bool commander);

// At most kMostLinSlots entries.
Bytes LinTableRequest(uint8_t channel, std::span<const LinSlot> table);

// The count of a request is one byte.
constexpr size_t kMostLinResponses = 255;

// Frames with data; at most kMostLinResponses.
Bytes LinResponseRequest(uint8_t channel, std::span<const LinFrame> responses);
Bytes LinResponseDeleteRequest(uint8_t channel, std::span<const uint8_t> ids);

enum class LinClear : uint8_t {
    Table = 0,
    Responses = 1,
    All = 2,
};

Bytes LinClearRequest(uint8_t channel, LinClear what);
Bytes LinScheduleRequest(uint8_t channel, bool run);

constexpr size_t kLinSpaces = 9;
constexpr uint8_t kMostInterByte = 63;

// One frame outside the schedule, with its times on the bus. Lengths are in the units of the
// device's LIN driver.
struct LinMessage {
    LinFrame frame;
    std::optional<uint8_t> pid; // instead of the frame's own, with parity bits as they are to be
    uint8_t sync = 0x55;
    uint8_t interByte = 0; // at most kMostInterByte
    uint8_t breakLength = 13;
    uint8_t breakDelimiter = 1;
    std::array<uint8_t, kLinSpaces> spaces{}; // before each data byte, and before the checksum
    uint32_t headerRate = 0;                  // bit/s; 0: that of the channel
    uint32_t responseRate = 0;
};

Bytes LinSendRequest(uint8_t channel, const LinMessage& message);

// A wake-up signal, or several. Times are in the units of the device's LIN driver.
struct LinWakeup {
    uint8_t repeats = 1;
    uint16_t interval = 0;
    uint16_t length = 0;
};

Bytes LinSleepRequest(uint8_t channel);
Bytes LinWakeRequest(uint8_t channel, const LinWakeup& wakeup);

// Faults that the driver puts on the bus. All but `on` is in the terms of the device's LIN driver.
struct LinDisturb {
    bool on = false;
    std::optional<uint8_t> id; // only frames of this identifier
    uint8_t type = 0;
    uint8_t length = 0;
    uint8_t offset = 0;
    uint8_t field = 0;
    std::optional<uint16_t> times; // only so many
};

Bytes LinDisturbRequest(uint8_t channel, const LinDisturb& disturb);

} // namespace vcihost
