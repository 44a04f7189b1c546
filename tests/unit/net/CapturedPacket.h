#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <pcap/pcap.h>

constexpr int kCookedLinkType = 276;
constexpr uint8_t kClassicProtocol = 12;
constexpr uint8_t kFdProtocol = 13;

// A packet as the capture delivers it: time and bytes.
struct CapturedPacket {
    pcap_pkthdr Header() const {
        pcap_pkthdr header{};
        header.ts.tv_sec = seconds;
        header.ts.tv_usec = nanoseconds;
        header.caplen = static_cast<bpf_u_int32>(bytes.size());
        header.len = header.caplen;
        return header;
    }

    std::vector<uint8_t> bytes;
    long seconds = 0;
    long nanoseconds = 0;
};

// What a test says of a CAN packet; the rest of it is noise that nobody may read.
struct CanFields {
    uint8_t protocol = kClassicProtocol;
    uint32_t index = 1; // of the interface
    uint32_t id = 0;    // with its flag bits
    uint8_t length = 0;
    uint8_t flags = 0;
    uint8_t direction = 1;
    uint8_t channel = 0;
    std::vector<uint8_t> payload{};
};

inline CapturedPacket MakeCanPacket(const CanFields& fields) {
    CapturedPacket packet;
    auto& bytes = packet.bytes;
    bytes.assign(34, 0xEE);
    bytes[0] = 0;
    bytes[1] = fields.protocol;
    for (size_t i = 0; i < 4; ++i) {
        bytes[7 - i] = static_cast<uint8_t>(fields.index >> 8 * i);
        bytes[26 + i] = static_cast<uint8_t>(fields.id >> 8 * i);
    }
    bytes[30] = fields.length;
    bytes[31] = fields.flags;
    bytes[32] = fields.direction;
    bytes[33] = fields.channel;
    bytes.insert(bytes.end(), fields.payload.begin(), fields.payload.end());
    return packet;
}

// A handle that yields these packets and then ends.
inline pcap_t* OpenRecorded(const std::vector<CapturedPacket>& packets, const std::string& path) {
    pcap_t* form =
        pcap_open_dead_with_tstamp_precision(kCookedLinkType, 8192, PCAP_TSTAMP_PRECISION_NANO);
    pcap_dumper_t* file = pcap_dump_open(form, path.c_str());
    for (const auto& packet : packets) {
        const pcap_pkthdr header = packet.Header();
        pcap_dump(reinterpret_cast<u_char*>(file), &header, packet.bytes.data());
    }
    pcap_dump_close(file);
    pcap_close(form);
    char errbuf[PCAP_ERRBUF_SIZE];
    return pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO,
                                                   errbuf);
}
