#pragma once

#include "net/ZephCanCom.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace net {

// The sockets of all CAN channels, and the one door to them. Channels are 0 to 5; a higher number
// gives -61444. Any thread may write and ask; opening and closing belong to the main thread.
class ZephCanComM {
  public:
    static ZephCanComM& GetInstance();

    ZephCanComM();
    ZephCanComM(const ZephCanComM&) = delete;
    ZephCanComM& operator=(const ZephCanComM&) = delete;

    // 0, also when a socket could not be opened: the status tells that an open was asked for.
    int CanComMOpen(uint8_t ch);

    // See ZephCanCom::Write. -61441 for a type above 1. Takes no lock: each write is one system
    // call, on a socket that is closed only when the device is cleared.
    int WriteCallback(uint8_t ch, void* frame, int type, int protocol, int extend);

    // See ZephCanCom::CloseAll.
    int CloseCallback(uint8_t ch, int mode);

    // 1 from CanComMOpen to CloseCallback, otherwise 0.
    int GetComNetStatus(uint8_t ch) const;

    // The channel's socket of the broadcast manager; negative when there is none.
    int GetFd2(uint8_t ch) const;

    // Puts other sockets in place of a channel's. Before any thread uses the channel.
    void ReplaceChannel(uint8_t ch, std::shared_ptr<ZephCanCom> com);

  private:
    static constexpr size_t kChannels = 6;

    std::vector<std::shared_ptr<ZephCanCom>> canCom_;
    std::mutex mutex_; // status changes and closing
    std::array<std::atomic<int>, kChannels> canNetStatus_{};
};

} // namespace net
