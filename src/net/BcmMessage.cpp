#include "net/BcmMessage.h"

#include <cstring>

namespace net {

namespace {

constexpr uint64_t kUsPerSecond = 1000000;
constexpr uint64_t kUsPerMs = 1000;
constexpr uint64_t kMsPerSecond = 1000;
constexpr uint64_t kTwoSecondsMs = 2000;

// The broadcast manager's timer cycle adds a delay of its own to each period. These microseconds
// come off, so that the period on the bus is the one that was asked for. Longer periods get the
// smaller correction or none.
struct Correction {
    uint32_t upToOneSecond;
    uint32_t upToTwoSeconds;
};

constexpr Correction kClassicCorrection{20, 8};

// By payload length; none for a length that no DLC code has.
Correction FdCorrection(uint8_t length) {
    switch (length) {
    case 0:
        return {18, 7};
    case 1:
    case 2:
    case 3:
    case 4:
        return {19, 7};
    case 5:
    case 6:
    case 7:
    case 8:
    case 12:
        return {20, 8};
    case 16:
        return {21, 10};
    case 20:
    case 24:
        return {22, 11};
    case 32:
        return {24, 13};
    case 48:
        return {27, 16};
    case 64:
        return {30, 19};
    default:
        return {0, 0};
    }
}

bcm_timeval TimeOf(uint64_t us) {
    return {static_cast<long>(us / kUsPerSecond), static_cast<long>(us % kUsPerSecond)};
}

bcm_timeval CorrectedPeriod(uint64_t periodMs, const Correction& correction) {
    uint64_t us = periodMs * kUsPerMs;
    if (periodMs <= kMsPerSecond) {
        us -= correction.upToOneSecond;
    } else if (periodMs <= kTwoSecondsMs) {
        us -= correction.upToTwoSeconds;
    }
    return TimeOf(us);
}

template <typename Frame>
BcmHead StartHead(const Frame& frame, uint32_t flags, uint64_t delayUs, uint64_t periodMs,
                  const Correction& correction) {
    BcmHead head{};
    head.opcode = TX_SETUP;
    head.flags = flags;
    head.ival1 = TimeOf(delayUs);
    head.ival2 = CorrectedPeriod(periodMs, correction);
    head.can_id = frame.can_id;
    head.nframes = 1;
    return head;
}

} // namespace

BcmMessage::BcmMessage(const BcmHead& head, const void* frame, size_t frameSize)
    : size_(sizeof(head) + frameSize) {
    std::memcpy(bytes_.data(), &head, sizeof(head));
    if (frame != nullptr) {
        std::memcpy(bytes_.data() + sizeof(head), frame, frameSize);
    }
}

BcmMessage BcmMessage::Start(const can_frame& frame, uint32_t flags, uint64_t delayUs,
                             uint64_t periodMs) {
    return {StartHead(frame, flags, delayUs, periodMs, kClassicCorrection), &frame, CAN_MTU};
}

BcmMessage BcmMessage::Start(const canfd_frame& frame, uint32_t flags, uint64_t delayUs,
                             uint64_t periodMs) {
    return {StartHead(frame, flags | CAN_FD_FRAME, delayUs, periodMs, FdCorrection(frame.len)),
            &frame, CANFD_MTU};
}

BcmMessage BcmMessage::Stop(canid_t id, bool fd) {
    BcmHead head{};
    head.opcode = TX_DELETE;
    head.flags = fd ? CAN_FD_FRAME : 0;
    head.can_id = id;
    return {head, nullptr, fd ? size_t{CANFD_MTU} : size_t{CAN_MTU}};
}

} // namespace net
