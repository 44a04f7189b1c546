#pragma once

#include "net/ZephLinCom.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

// The sockets of both LIN channels, and the one door to them. Results are 0 or negative: -61443 a
// socket that was not opened, -61444 no channel, -61445 a device that is not open, -1 anything
// else. Any thread may write and ask; opening and closing belong to the main thread, and tell what
// fails on standard output, as a write does.
class ZephLinComM {
  public:
    static ZephLinComM& GetInstance();

    ZephLinComM();
    ZephLinComM(const ZephLinComM&) = delete;
    ZephLinComM& operator=(const ZephLinComM&) = delete;

    // Needs an open device. 0 also where nothing was done: a socket that is open already, and a
    // device that is not.
    int LinComMOpen(uint8_t ch);

    int LinComMClose(uint8_t ch, int mode); // see ZephLinCom::Close

    // Takes no lock: the main thread and an executor write at the same time, each in one system
    // call.
    int WriteCallback(uint8_t ch, const canfd_frame* frame);

    int ErrUploadCallback(uint8_t ch);

    // 1 from LinComMOpen to LinComMClose, otherwise 0; -61444 for no channel.
    int GetComNetStatus(uint8_t ch) const;

    // Puts another socket in place of a channel's. Before any thread uses the channel.
    void ReplaceChannel(uint8_t ch, std::shared_ptr<ZephLinCom> com);

  private:
    static constexpr size_t kChannels = 2;

    std::mutex mutex_; // status changes
    std::vector<std::shared_ptr<ZephLinCom>> linCom_;
    std::array<std::atomic<int>, kChannels> linNetStatus_{};
};
