#include "net/planner/CanFrameTime.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace net {

namespace {

constexpr double STUFFING_FACTOR = 1.1; // a planner's mean; the worst case would be 1.25
constexpr int BITS_PER_BYTE = 8;
constexpr double SEC_TO_MICROSEC = 1000000.0;

constexpr int kMostClassicBytes = 8;
constexpr int kMostFdBytes = 64;

constexpr int kSofBits = 1;
constexpr int kStandardIdBits = 12; // 11 of the identifier and RTR
constexpr int kExtendedIdBits = 31; // 29 of the identifier, SRR and IDE
constexpr int kClassicControlBits = 5;
constexpr int kClassicCrcBits = 16;
constexpr int kFdArbitrationControlBits = 4; // up to the switch of the bit rate
constexpr int kFdDataControlBits = 4;
constexpr int kFdStuffCountBits = 5;
constexpr int kTrailerBits = 9; // acknowledge and end of frame, never stuffed

double Stuffed(int bits) {
    return std::ceil(bits * STUFFING_FACTOR);
}

} // namespace

uint32_t getCanFdCrcBits(uint8_t dlc) {
    // Coarser than the protocol, which has 17 bits up to 16 bytes and 21 above: plans of the same
    // task set must not change, so these limits stay.
    if (dlc < 9) {
        return 17;
    }
    if (dlc <= 24) {
        return 21;
    }
    if (dlc <= kMostFdBytes) {
        return 33;
    }
    throw std::runtime_error(
        "Invalid DLC for CAN FD CRC calculation. DLC must be between 0 and 64.");
}

uint32_t calculateFrameTransmissionTime(const CanBitRates& rates, CanFrameType frame_type,
                                        CanIdType id_type, int dlc) {
    const bool fd = frame_type == CAN_FD_Task;
    if (!fd) {
        dlc = std::min(dlc, kMostClassicBytes);
    }
    if (dlc < 0 || dlc > kMostFdBytes) {
        throw std::runtime_error("Invalid DLC for specified frame type.");
    }
    const int idBits = id_type == EXTENDED ? kExtendedIdBits : kStandardIdBits;
    double seconds = 0;
    if (fd) {
        const double arbitration = Stuffed(kSofBits + idBits + kFdArbitrationControlBits);
        // At the data rate whether the frame asks for the switch or not.
        const double data =
            kTrailerBits + Stuffed(kFdDataControlBits + BITS_PER_BYTE * dlc +
                                   static_cast<int>(getCanFdCrcBits(static_cast<uint8_t>(dlc))) +
                                   kFdStuffCountBits);
        seconds = arbitration / rates.arbitration + data / rates.data;
    } else {
        const double total = kTrailerBits + Stuffed(kSofBits + idBits + kClassicControlBits +
                                                    BITS_PER_BYTE * dlc + kClassicCrcBits);
        seconds = total / rates.arbitration;
    }
    return static_cast<uint32_t>(seconds * SEC_TO_MICROSEC);
}

} // namespace net
