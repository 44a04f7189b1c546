#include "vcihost/SocketCan.h"

#include <algorithm>

namespace vcihost {

namespace {

// CAN FD flags.
constexpr uint8_t kBrs = 0x01;
constexpr uint8_t kEsi = 0x02;
constexpr uint8_t kFdf = 0x04; // marks a CAN FD frame, whatever its length

// Data of an error frame.
constexpr size_t kProtocolByte = 2;
constexpr uint8_t kWhileSending = 0x80;
constexpr size_t kControllerByte = 5; // the two behind it are taken for error counters by readers

} // namespace

uint32_t SocketCanId(const CanFrameRecord& record) {
    return record.id | (record.extended ? kSocketCanExtended : 0) |
           (record.remote ? kSocketCanRemote : 0);
}

uint32_t SocketCanId(const CanErrorRecord& /*record*/) {
    return kSocketCanError | kSocketCanProtocolError;
}

std::array<uint8_t, kSocketCanErrorBytes> SocketCanErrorData(const CanErrorRecord& record) {
    std::array<uint8_t, kSocketCanErrorBytes> data{};
    data[kProtocolByte] = record.received ? 0 : kWhileSending;
    data[kControllerByte] = record.code;
    return data;
}

SocketCanPacket::SocketCanPacket(const CanFrameRecord& record) {
    const auto flags = static_cast<uint8_t>((record.fd ? kFdf : 0) | (record.brs ? kBrs : 0) |
                                            (record.esi ? kEsi : 0));
    Fill(SocketCanId(record), record.Length(), flags, record.data);
}

SocketCanPacket::SocketCanPacket(const CanErrorRecord& record) {
    Fill(SocketCanId(record), kSocketCanErrorBytes, 0, SocketCanErrorData(record));
}

void SocketCanPacket::Fill(uint32_t id, uint8_t length, uint8_t flags,
                           std::span<const uint8_t> data) {
    const uint8_t head[] = {static_cast<uint8_t>(id >> 24U),
                            static_cast<uint8_t>(id >> 16U),
                            static_cast<uint8_t>(id >> 8U),
                            static_cast<uint8_t>(id),
                            length,
                            flags,
                            0,
                            0};
    static_assert(sizeof(head) == kHead);
    const auto behind = std::copy(std::begin(head), std::end(head), bytes_.begin());
    std::copy(data.begin(), data.end(), behind);
    size_ = kHead + data.size();
}

} // namespace vcihost
