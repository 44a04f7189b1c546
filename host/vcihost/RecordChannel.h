#pragma once

#include "vcihost/CanRecord.h"
#include "vcihost/LinRecord.h"

namespace vcihost {

// One channel, of whatever bus, whose traffic can be recorded. A plain value.
struct RecordChannel {
    enum class Bus : uint8_t {
        Can,
        Lin
    };

    Bus bus = Bus::Can;
    uint8_t number = 0; // on its bus, from 0

    bool operator==(const RecordChannel&) const = default;

    bool IsLin() const { return bus == Bus::Lin; }

    // From 0, CAN channels first.
    size_t Index() const { return IsLin() ? size_t{kCanChannels} + number : number; }

    // "can0", "lin0".
    std::string Name() const { return IsLin() ? LinChannelName(number) : CanChannelName(number); }

    // The request that switches its record.
    Bytes SwitchRequest(bool on) const {
        return IsLin() ? LinRecordSwitchRequest(number, on) : CanRecordSwitchRequest(number, on);
    }

    static RecordChannel Of(const CanFrameRecord& record) { return {Bus::Can, record.channel}; }
    static RecordChannel Of(const CanErrorRecord& record) { return {Bus::Can, record.channel}; }
    static RecordChannel Of(const LinFrameRecord& record) { return {Bus::Lin, record.channel}; }
    static RecordChannel Of(const LinWakeupRecord& record) { return {Bus::Lin, record.channel}; }
};

constexpr size_t kRecordChannels = size_t{kCanChannels} + kLinChannels;

} // namespace vcihost
