#pragma once

#include "vcihost/BufferedFile.h"

namespace vcihost {

// Link types, by the numbers of their registry.
enum class LinkType : uint16_t {
    Ethernet = 1,
    Lin = 212,
    SocketCan = 227,
};

// Which way a packet went, as seen from the device.
enum class PacketDirection : uint8_t {
    Unknown = 0,
    Inbound = 1,
    Outbound = 2
};

// One capture file of the pcapng format: a section, its interfaces, then packets with times in
// nanoseconds since 1970. Interfaces are counted from 0 in the order in which they are added, and
// may be added behind packets. An empty text is left out. Used on one thread.
class PcapngWriter {
  public:
    struct Section {
        std::string hardware;
        std::string os;
        std::string application;
        std::string comment;
    };

    struct Interface {
        std::string name;
        std::string description;
        LinkType linkType;
    };

    struct Packet {
        uint32_t interface;
        uint64_t time;
        std::span<const uint8_t> data;
        PacketDirection direction = PacketDirection::Unknown;
        uint64_t dropped = 0; // packets lost since the packet before; 0 is not written
        std::string_view comment = {};
    };

    struct Statistics {
        uint32_t interface;
        uint64_t time; // of the statistics themselves
        uint64_t start;
        uint64_t end;
        uint64_t received;    // packets that the interface has seen
        uint64_t accepted;    // those that the filter let through
        uint64_t dropped = 0; // packets lost since the start; 0 is not written
    };

    // `file` must be empty, and outlive the writer. All of these throw FileError.
    PcapngWriter(BufferedFile& file, const Section& section);
    uint32_t AddInterface(const Interface& interface);
    void AddPacket(const Packet& packet);
    void AddStatistics(const Statistics& statistics);

  private:
    void Begin(uint32_t type);
    void U16(uint16_t value);
    void U32(uint32_t value);
    void U64(uint64_t value);
    void Time(uint64_t time);
    void Padded(std::span<const uint8_t> bytes);
    void OptionHead(uint16_t code, uint16_t length);
    void Text(uint16_t code, std::string_view text);
    void Counter(uint16_t code, uint64_t value);
    void TimeOption(uint16_t code, uint64_t time);
    void EndOptions();
    void Finish();

    BufferedFile& file_;
    Bytes block_; // the one that is being made
    uint32_t interfaces_ = 0;
};

} // namespace vcihost
