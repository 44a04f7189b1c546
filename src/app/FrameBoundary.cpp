#include "app/FrameBoundary.h"

#include "common/Config.h"
#include "drivers/UsbDriver.h"

#include <utility>

namespace {

constexpr uint32_t kHeaderSize = 8; // leading byte, length, gid, sid, one more
constexpr uint32_t kGidOffset = 5;
constexpr uint32_t kShortestService = 2; // gid and sid

} // namespace

FrameBoundary::FrameBoundary(std::function<bool(uint8_t)> isGroup, uint32_t maxFrame)
    : isGroup_(std::move(isGroup)), maxFrame_(maxFrame) {}

// The write index is where the next frame can begin.
void FrameBoundary::LoseAt(uint32_t in) {
    state_ = State::Lost;
    seenIn_ = in;
    candidate_ = in;
}

void FrameBoundary::Start() {
    auto& usb = Drivers::UsbDriver::GetInstance();
    const uint32_t in = usb.ReadIn();
    if (in - usb.ReadOut() > Drivers::UsbDriver::kReadRingSize) {
        LoseAt(in);
    }
}

bool FrameBoundary::Begin() {
    auto& usb = Drivers::UsbDriver::GetInstance();
    const uint32_t in = usb.ReadIn();
    if (state_ != State::Sure) {
        if (in == seenIn_) {
            return false;
        }
        seenIn_ = in;
        if (state_ == State::Lost && !FindFrame()) {
            return false;
        }
        state_ = State::Sure;
    }
    seenIn_ = in;
    startOut_ = usb.ReadOut();
    return true;
}

void FrameBoundary::End(bool fault) {
    const uint32_t out = Drivers::UsbDriver::GetInstance().ReadOut();
    // Signed, since both run freely: a read index past the write index is a negative level.
    const auto moved = static_cast<int32_t>(out - startOut_);
    const auto level = static_cast<int32_t>(seenIn_ - startOut_);
    if (moved > 0 && moved <= level) {
        return;
    }
    if (fault) {
        LoseAt(seenIn_);
    } else {
        state_ = State::Incomplete;
    }
}

// With new bytes up to seenIn_: true when reading can go on at the read index, which this may set.
bool FrameBoundary::FindFrame() {
    auto& usb = Drivers::UsbDriver::GetInstance();
    const auto level = static_cast<int32_t>(seenIn_ - usb.ReadOut());
    if (level == 0) { // exactly what was skipped has arrived
        state_ = State::Sure;
        return false;
    }
    switch (FrameAt(candidate_, seenIn_)) {
    case Match::Whole:
        usb.SetReadOut(candidate_);
        return true;
    case Match::Begun:
        return false;
    default:
        candidate_ = seenIn_;
        // More than a ring full was never there: a length had moved the index far back.
        return level > 0 && level <= static_cast<int32_t>(Drivers::UsbDriver::kReadRingSize);
    }
}

FrameBoundary::Match FrameBoundary::FrameAt(uint32_t index, uint32_t end) const {
    const uint32_t arrived = end - index;
    if (arrived < kHeaderSize) {
        return Match::Begun;
    }
    uint8_t header[kHeaderSize];
    Drivers::UsbDriver::GetInstance().PeekAt(index, header, kHeaderSize);
    const uint32_t serviceLen = UcharToUint(header + 1);
    if (serviceLen < kShortestService || serviceLen > maxFrame_ || !isGroup_(header[kGidOffset])) {
        return Match::None;
    }
    const uint32_t msgLen = serviceLenToMsgLen(serviceLen);
    if (msgLen > maxFrame_) {
        return Match::None;
    }
    return msgLen <= arrived ? Match::Whole : Match::Begun;
}
