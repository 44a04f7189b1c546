#pragma once

#include "common/Config.h"
#include "drivers/UsbDriver.h"
#include "utils/WireFormat.h"

#include <array>
#include <cstdint>

// A message that the device sends unasked, in a buffer of its own, so that it may be built and sent
// on any thread and leaves the answers of the services alone. `kServiceLength` counts gid and sid.
template <uint32_t kServiceLength> class UploadFrame {
  public:
    UploadFrame() { WireWriter(frame_).U8(0).U32(kServiceLength); }

    // The service section: gid, sid and payload, to be filled by the caller.
    WireWriter Service() {
        return WireWriter(
            std::span(frame_).template subspan<kFrameServiceOffset, kServiceLength>());
    }

    // True when the message was queued; a full ring drops it, which is counted there.
    bool Send() const {
        return Drivers::UsbDriver::GetInstance().UsbWrite(frame_.data(), kFrameLength) != 0;
    }

  private:
    static constexpr uint32_t kFrameLength = serviceLenToMsgLen(kServiceLength);

    std::array<uint8_t, kFrameLength> frame_{};
};
