#include "vcihost/LinRequest.h"

#include "common/GlobalEnums.h"
#include "utils/WireFormat.h"

#include <algorithm>
#include <stdexcept>

namespace vcihost {

namespace {

constexpr uint8_t kGid = LIN_MESSAGE_SERVICE_GID;

constexpr size_t kHead = 4; // gid, sid, channel, count
constexpr size_t kTableEntry = 4;
constexpr size_t kResponseEntry = 2 + kMostLinBytes;
constexpr size_t kChannelSize = 8;
constexpr size_t kSendSize = 36;
// One byte more than the fields take: the device refuses a shorter request.
constexpr size_t kSleepSize = 11;
constexpr size_t kDisturbSize = 13;

// Values of sid 8.
constexpr uint8_t kSleep = 0;
constexpr uint8_t kWake = 1;

// Head of a request with entries, with room for them.
Bytes MakeList(uint8_t sid, uint8_t channel, size_t count, size_t most, size_t entrySize) {
    if (count > most) {
        throw std::invalid_argument("more entries than the count of a request can tell");
    }
    Bytes service{kGid, sid, channel, static_cast<uint8_t>(count)};
    service.reserve(kHead + count * entrySize);
    return service;
}

Bytes MakeWakeupOrSleep(uint8_t channel, uint8_t value, const LinWakeup& wakeup) {
    Bytes service(kSleepSize);
    WireWriter(service)
        .U8(kGid)
        .U8(kLinSleepSid)
        .U8(channel)
        .U8(0)
        .U8(value)
        .U8(wakeup.repeats)
        .U16(wakeup.interval)
        .U16(wakeup.length);
    return service;
}

Bytes MakeChannel(uint8_t channel, bool open, const LinSetUp& setUp) {
    Bytes service(kChannelSize);
    WireWriter(service)
        .U8(kGid)
        .U8(kLinChannelSid)
        .U8(channel)
        .U8(open ? 1 : 0)
        .U16(setUp.bitrate)
        .U8(setUp.version)
        .U8(static_cast<uint8_t>(setUp.supply));
    return service;
}

} // namespace

Bytes LinOpenRequest(uint8_t channel, const LinSetUp& setUp) {
    return MakeChannel(channel, true, setUp);
}

// As long as the one that opens; the device looks at nothing behind the state.
Bytes LinCloseRequest(uint8_t channel) {
    return MakeChannel(channel, false, {0, 0, LinSupply::Internal});
}

Bytes LinRoleRequest(uint8_t channel, bool commander) {
    return {kGid, kLinRoleSid, channel, static_cast<uint8_t>(commander)};
}

Bytes LinTableRequest(uint8_t channel, std::span<const LinSlot> table) {
    Bytes service = MakeList(kLinTableSid, channel, table.size(), kMostLinSlots, kTableEntry);
    for (const LinSlot& slot : table) {
        uint8_t entry[kTableEntry];
        WireWriter(entry).U8(slot.id).U8(slot.length).U16(slot.slotMs);
        service.insert(service.end(), std::begin(entry), std::end(entry));
    }
    return service;
}

Bytes LinResponseRequest(uint8_t channel, std::span<const LinFrame> responses) {
    Bytes service =
        MakeList(kLinResponseSid, channel, responses.size(), kMostLinResponses, kResponseEntry);
    for (const LinFrame& response : responses) {
        uint8_t entry[kResponseEntry]{};
        WireWriter(entry).U8(response.id).U8(response.Length()).Bytes(response.data);
        service.insert(service.end(), std::begin(entry), std::end(entry));
    }
    return service;
}

Bytes LinResponseDeleteRequest(uint8_t channel, std::span<const uint8_t> ids) {
    Bytes service =
        MakeList(kLinResponseDeleteSid, channel, ids.size(), kMostLinResponses, sizeof(uint8_t));
    service.insert(service.end(), ids.begin(), ids.end());
    return service;
}

Bytes LinClearRequest(uint8_t channel, LinClear what) {
    return {kGid, kLinClearSid, channel, static_cast<uint8_t>(what)};
}

Bytes LinScheduleRequest(uint8_t channel, bool run) {
    return {kGid, kLinScheduleSid, channel, static_cast<uint8_t>(run)};
}

Bytes LinSendRequest(uint8_t channel, const LinMessage& message) {
    const LinFrame& frame = message.frame;
    uint8_t data[kMostLinBytes]{};
    WireWriter(data).Bytes(frame.data);
    Bytes service(kSendSize);
    WireWriter(service)
        .U8(kGid)
        .U8(kLinSendSid)
        .U8(channel)
        .U8(frame.headerOnly ? 0 : 1)
        .U8(0) // the device does not use it
        .U8(frame.Length())
        .U8(message.sync)
        .U8(message.interByte)
        .U8(message.pid.value_or(LinPid(frame.id)))
        .U8(message.breakLength)
        .U8(message.breakDelimiter)
        .Bytes(data)
        .Bytes(message.spaces)
        .U32(message.headerRate)
        .U32(message.responseRate);
    return service;
}

Bytes LinSleepRequest(uint8_t channel) {
    return MakeWakeupOrSleep(channel, kSleep, {0, 0, 0});
}

Bytes LinWakeRequest(uint8_t channel, const LinWakeup& wakeup) {
    return MakeWakeupOrSleep(channel, kWake, wakeup);
}

Bytes LinDisturbRequest(uint8_t channel, const LinDisturb& disturb) {
    Bytes service(kDisturbSize);
    WireWriter(service)
        .U8(kGid)
        .U8(kLinDisturbSid)
        .U8(channel)
        .U8(disturb.on ? 1 : 0)
        .U8(disturb.id ? 1 : 0)
        .U8(disturb.id.value_or(0))
        .U8(disturb.type)
        .U8(disturb.length)
        .U8(disturb.offset)
        .U8(disturb.field)
        .U8(disturb.times ? 1 : 0)
        .U16(disturb.times.value_or(0));
    return service;
}

} // namespace vcihost
