#include "app/FrameBoundary.h"

#include "common/Config.h"
#include "drivers/UsbDriver.h"

#include <utility>

namespace {

constexpr uint32_t kRingSize = Drivers::UsbDriver::kReadRingSize;
constexpr uint32_t kShortestService = 2; // gid and sid

} // namespace

FrameBoundary::FrameBoundary(std::function<bool(uint8_t)> isGroup, uint32_t maxFrame)
    : isGroup_(std::move(isGroup)), maxFrame_(maxFrame) {}

// What lies before the write index means nothing any more; a frame can begin there.
void FrameBoundary::Lose(State state, uint32_t in) {
    state_ = state;
    seenIn_ = in;
    candidate_ = in;
}

void FrameBoundary::Start() {
    auto& usb = Drivers::UsbDriver::GetInstance();
    const uint32_t in = usb.ReadIn();
    const uint32_t out = usb.ReadOut();
    if (in - out > kRingSize) {
        Lose(State::Behind, in);
    } else if (in - out >= kFrameHeadSize && FrameAt(out, in) == Match::Begun) {
        // The earlier daemon has treated it, and may have ended by that.
        state_ = State::Incomplete;
        seenIn_ = in;
    }
}

bool FrameBoundary::Begin() {
    auto& usb = Drivers::UsbDriver::GetInstance();
    const uint32_t in = usb.ReadIn();
    const bool news = in != seenIn_;
    switch (state_) {
    case State::Sure:
        break;
    case State::Incomplete:
        if (!news) {
            return false;
        }
        break;
    case State::Behind:
        // Without room the host could not even send what would lead out of here.
        if (!news && in - usb.ReadOut() <= kRingSize / 2) {
            return false;
        }
        usb.SetReadOut(candidate_);
        state_ = State::Sure;
        if (!news) {
            return false;
        }
        break;
    case State::Ahead:
        if (!news || !FindFrame(in)) {
            return false;
        }
        break;
    }
    state_ = State::Sure;
    seenIn_ = in;
    startOut_ = usb.ReadOut();
    return true;
}

void FrameBoundary::End(bool fault) {
    auto& usb = Drivers::UsbDriver::GetInstance();
    // Signed, since both run freely: a read index past the write index is a negative level. Bytes
    // that have arrived meanwhile count as arrived here, and as news at the next Begin().
    const auto moved = static_cast<int32_t>(usb.ReadOut() - startOut_);
    const auto level = static_cast<int32_t>(usb.ReadIn() - startOut_);
    if (!fault && moved == 0) {
        state_ = State::Incomplete;
    } else if (moved <= 0) {
        Lose(State::Behind, seenIn_);
    } else if (moved > level) {
        Lose(State::Ahead, seenIn_);
    }
}

// With new bytes up to `in`: true when reading can go on at the read index, which this may set.
bool FrameBoundary::FindFrame(uint32_t in) {
    auto& usb = Drivers::UsbDriver::GetInstance();
    const uint32_t arrival = seenIn_; // where the newest bytes begin
    seenIn_ = in;
    const auto level = static_cast<int32_t>(in - usb.ReadOut());
    if (level == 0) { // exactly what was skipped has arrived
        state_ = State::Sure;
        return false;
    }
    const Match match = FrameAt(candidate_, in);
    if (match != Match::Whole && FrameAt(arrival, in) == Match::Whole) {
        usb.SetReadOut(arrival);
        return true;
    }
    switch (match) {
    case Match::Whole:
        usb.SetReadOut(candidate_);
        return true;
    case Match::None:
        candidate_ = in;
        break;
    case Match::Begun:
        break;
    }
    return level > 0;
}

FrameBoundary::Match FrameBoundary::FrameAt(uint32_t index, uint32_t end) const {
    const uint32_t arrived = end - index;
    if (arrived < kFrameHeadSize) {
        return Match::Begun;
    }
    uint8_t header[kFrameHeadSize];
    Drivers::UsbDriver::GetInstance().PeekAt(index, header, kFrameHeadSize);
    const uint32_t serviceLen = UcharToUint(header + 1);
    if (serviceLen < kShortestService || serviceLen > maxFrame_ ||
        !isGroup_(header[kFrameServiceOffset])) {
        return Match::None;
    }
    const uint32_t msgLen = serviceLenToMsgLen(serviceLen);
    if (msgLen > maxFrame_) {
        return Match::None;
    }
    return msgLen <= arrived ? Match::Whole : Match::Begun;
}
