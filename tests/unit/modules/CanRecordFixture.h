#pragma once

#include "modules/CanErrorFiles.h"
#include "modules/CanRecord.h"
#include "net/CapturedPacket.h"
#include "support/BoardTest.h"

#include <array>
#include <atomic>
#include <numeric>
#include <vector>

using Counters = std::array<uint64_t, 6>;

inline Counters Values(const std::array<std::atomic<uint64_t>, kCanChannels>& counters) {
    Counters values{};
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = counters[i];
    }
    return values;
}

// The record path from a captured packet to the host, with error rings in files and all counters 0.
class CanRecordTest : public BoardTest {
  protected:
    CanRecordTest() {
        for (auto* counters : {&CanRxFrameNum, &CanTxFrameNum, &CanErrFrameNum, &CanFrameNum}) {
            for (auto& counter : *counters) {
                counter = 0;
            }
        }
        Drivers::CanManage::ListenstatusMask_ = 0;
        Drivers::CanManage::ListenchannelForbidden_ = 0;
        for (size_t channel = 0; channel < rings.size(); ++channel) {
            EXPECT_TRUE(rings[channel].Open(files.Path(static_cast<int>(channel))));
        }
    }

    // The process leaves the bits to the next one when it ends.
    ~CanRecordTest() override { Drivers::CanManage::ListenchannelForbidden_ = 0; }

    std::vector<Bytes> Record(const CapturedPacket& packet) {
        const pcap_pkthdr header = packet.Header();
        record.CanPacketCooked(&header, packet.bytes.data());
        return Answers();
    }

    std::vector<Bytes> Record(const CanFields& fields) { return Record(MakeCanPacket(fields)); }

    // The only record of a packet.
    Bytes RecordOne(const CanFields& fields) {
        const auto records = Record(fields);
        EXPECT_EQ(records.size(), 1U);
        return records.empty() ? Bytes(64) : records.front();
    }

    static CanFields Frame(uint8_t length, uint8_t protocol = kClassicProtocol) {
        CanFields fields{.protocol = protocol, .length = length};
        fields.payload.resize(length);
        std::iota(fields.payload.begin(), fields.payload.end(), uint8_t{1});
        return fields;
    }

    static CanFields ErrorNotice(uint8_t channel, uint8_t slot, uint8_t count) {
        return {.id = 0x20000000, .length = 8, .channel = channel, .payload = {slot, count}};
    }

    CanErrorFiles files;
    CanRecord::ErrorRings rings;
    CanRecord record{Drivers::CanManage::GetInstance(), rings};
};
