#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <linux/can.h>
#include <linux/can/bcm.h>

namespace net {

// The kernel's bcm_msg_head without the array of frames at its end, which no C++ object can have.
struct BcmHead {
    uint32_t opcode;
    uint32_t flags;
    uint32_t count;
    bcm_timeval ival1;
    bcm_timeval ival2;
    canid_t can_id;
    uint32_t nframes;
};
static_assert(sizeof(BcmHead) == 56 && sizeof(BcmHead) == sizeof(bcm_msg_head) &&
              offsetof(BcmHead, ival1) == offsetof(bcm_msg_head, ival1) &&
              offsetof(BcmHead, nframes) == offsetof(bcm_msg_head, nframes));

// A message to the broadcast manager: its head and one frame behind it.
class BcmMessage {
  public:
    static constexpr size_t kClassicSize = sizeof(BcmHead) + CAN_MTU;
    static constexpr size_t kFdSize = sizeof(BcmHead) + CANFD_MTU;
    static_assert(kClassicSize == 72 && kFdSize == 128);

    // Sends `frame` first after `delayUs`, then every `periodMs`, at least 1. `flags`: SETTIMER
    // alone changes a running task, with STARTTIMER it begins anew.
    static BcmMessage Start(const can_frame& frame, uint32_t flags, uint64_t delayUs,
                            uint64_t periodMs);
    static BcmMessage Start(const canfd_frame& frame, uint32_t flags, uint64_t delayUs,
                            uint64_t periodMs);

    // Ends the classic or the FD task of this id with flag bits.
    static BcmMessage Stop(canid_t id, bool fd);

    const uint8_t* Data() const { return bytes_.data(); }
    size_t Size() const { return size_; }

  private:
    BcmMessage(const BcmHead& head, const void* frame, size_t frameSize);

    alignas(8) std::array<uint8_t, kFdSize> bytes_{};
    size_t size_;
};

} // namespace net
