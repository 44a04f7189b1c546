#pragma once

#include "vcihost/Frame.h"

#include <cstdint>
#include <optional>
#include <string>

// The clock of the device, in nanoseconds, and the service by which a host compares it with its own
// and drives the sync line. Pure functions, safe from any thread.
namespace vcihost {

// "12.345678900 s".
std::string TimeText(uint64_t nanoseconds);

// Service sections of group 16.
Bytes SyncRequest();
Bytes SyncFollowUp(uint64_t hostTime); // nanoseconds of the host's clock; the device ignores them
Bytes SetSyncNode(bool master);
Bytes SetSyncState(bool up);

// The device time in an answer of group 16, and in those of the device (1), recording (9), IO (20),
// CAN set-up and sending (21, 22) that carry it in the same form; nothing for any other message.
std::optional<uint64_t> TimeInAnswer(const Message& message);

// Service ids of group 16.
constexpr uint8_t kSyncRequestSid = 1;
constexpr uint8_t kSyncFollowUpSid = 2;
constexpr uint8_t kSyncNodeSid = 3;
constexpr uint8_t kSyncStateSid = 4;

} // namespace vcihost
