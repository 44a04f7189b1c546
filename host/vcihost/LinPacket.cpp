#include "vcihost/LinPacket.h"

#include <algorithm>

namespace vcihost {

namespace {

constexpr uint8_t kRevision = 1; // three reserved bytes follow it

// The byte of length, kind and checksum type.
constexpr unsigned kLengthShift = 4;
constexpr unsigned kKindShift = 2;
constexpr unsigned kFrameKind = 0;
constexpr unsigned kEventKind = 3;

} // namespace

LinPacket::LinPacket(const LinFrameRecord& record) {
    const uint8_t head[] = {
        kRevision,
        0,
        0,
        0,
        static_cast<uint8_t>(record.data.size() << kLengthShift | kFrameKind << kKindShift |
                             static_cast<unsigned>(record.ChecksumType())),
        record.pid,
        record.checksum,
        static_cast<uint8_t>(record.errorCode & kNamedLinErrors), // the same bits
    };
    static_assert(sizeof(head) == kHead);
    const auto behind = std::copy(std::begin(head), std::end(head), bytes_.begin());
    std::copy(record.data.begin(), record.data.end(), behind);
    size_ = kHead + record.data.size();
}

// An event tells no length; its number has the place of the bytes, the highest first.
LinPacket::LinPacket(LinEvent event) {
    const auto number = static_cast<uint32_t>(event);
    const uint8_t packet[] = {kRevision,
                              0,
                              0,
                              0,
                              kEventKind << kKindShift,
                              0,
                              0,
                              0,
                              static_cast<uint8_t>(number >> 24U),
                              static_cast<uint8_t>(number >> 16U),
                              static_cast<uint8_t>(number >> 8U),
                              static_cast<uint8_t>(number)};
    std::copy(std::begin(packet), std::end(packet), bytes_.begin());
    size_ = sizeof(packet);
}

} // namespace vcihost
