#pragma once

#include "utils/WireFormat.h"
#include "vcihost/BitTiming.h"
#include "vcihost/CanChannel.h"
#include "vcihost/CanFrame.h"

#include <span>

// Service sections of groups 21 and 22, CAN set-up and CAN sending. Channels are 0 to 5. Pure
// functions, safe from any thread.
namespace vcihost {

// Service ids of group 21.
constexpr uint8_t kCanTimingSid = 41;
constexpr uint8_t kCanSecondPointSid = 42;
constexpr uint8_t kCanTerminationSid = 43;
constexpr uint8_t kCanStatusSid = 44;
constexpr uint8_t kCanModeSid = 45;

// Service ids of group 22.
constexpr uint8_t kCanPeriodicSid = 51;
constexpr uint8_t kCanBurstSid = 52;
constexpr uint8_t kCanSilentSid = 53;

// What a channel is set to. `data` makes it a CAN FD channel.
struct CanTiming {
    BitTiming nominal;
    std::optional<BitTiming> data;
    bool listen = false;
};

constexpr uint8_t kMostSecondPoint = 63; // the register has six bits
constexpr uint8_t kMostTermination = 2;

Bytes CanTimingRequest(uint8_t channel, const CanTiming& timing);
// The offset of the secondary sample point; nothing switches it off.
Bytes CanSecondPointRequest(uint8_t channel, std::optional<uint8_t> offset);
Bytes CanTerminationRequest(uint8_t channel, uint8_t resistors);
Bytes CanStatusRequest(uint8_t channel, bool open);
Bytes CanModeRequest(uint8_t channel, bool listen);

// One line of a periodic request: a frame and its period in milliseconds, or 0 to stop it. A stop
// needs identifier and kind of the frame alone.
struct CanPeriodic {
    CanFrame frame;
    uint16_t periodMs = 0;
};

// The count of a request is one byte.
constexpr size_t kMostCanEntries = 255;

// As many requests as the count byte makes necessary, in order; none for nothing.
std::vector<Bytes> CanPeriodicRequests(uint8_t channel, std::span<const CanPeriodic> entries);
std::vector<Bytes> CanBurstRequests(uint8_t channel, std::span<const CanFrame> frames);

// Has no answer unless it is refused.
Bytes CanSilentRequest(uint8_t channel, const CanFrame& frame);

// Puts identifier, flags and data behind `service`, as all requests of group 22 and those of replay
// have them; `periodMs`, if given, between identifier and flags. Throws std::invalid_argument for a
// frame of a length without a DLC code.
void AppendCanFrame(Bytes& service, const CanFrame& frame, const uint16_t* periodMs = nullptr);

// Asks whether a channel could send, and sends nothing: a request to send no frame. Refused like
// any other one, answered with the device time.
Bytes CanProbeRequest(uint8_t channel);

// Reads identifier, flags and data as AppendCanFrame() puts them; `periodMs`, if given, is
// what stands between identifier and flags. Check the reader behind it.
CanFrame ReadCanFrame(WireReader& reader, uint16_t* periodMs = nullptr);

} // namespace vcihost
