#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <linux/can.h>
#include <linux/can/bcm.h>

namespace net {

// A message to the broadcast manager: its head and one frame behind it.
class BcmMessage {
  public:
    static constexpr size_t kClassicSize = sizeof(bcm_msg_head) + CAN_MTU;
    static constexpr size_t kFdSize = sizeof(bcm_msg_head) + CANFD_MTU;
    static_assert(sizeof(bcm_msg_head) == 56 && kClassicSize == 72 && kFdSize == 128);

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
    BcmMessage(const bcm_msg_head& head, const void* frame, size_t frameSize);

    alignas(8) std::array<uint8_t, kFdSize> bytes_{};
    size_t size_;
};

} // namespace net
