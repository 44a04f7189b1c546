#pragma once

#include "net/SocketWriters.h"

#include <atomic>
#include <string>

#include <linux/can.h>

// The raw socket of one LIN channel, on the driver's net device. It blocks, unlike the CAN ones: a
// header that waits for the driver keeps its slot. Any thread may write; opening and closing belong
// to the main thread. Results are 0 or -1, and what fails is told on standard error.
class ZephLinCom {
  public:
    explicit ZephLinCom(int index); // channel 0 or 1; tells itself on standard output
    ZephLinCom(const ZephLinCom&) = delete;
    ZephLinCom& operator=(const ZephLinCom&) = delete;
    virtual ~ZephLinCom();

    virtual int Open();

    // One system call, and no allocation unless it fails; the frame is then told on standard
    // output.
    virtual int Write(const canfd_frame* frame);

    // Mode 0: orderly, and -1 with the socket left open when it has an error pending; mode 1: at
    // once. -1 for another mode. A write of another thread has some 10 ms to end.
    virtual int Close(int mode);

    // Frames and errors come by way of the capture, so that neither does anything.
    int Read() { return 0; }
    int ErrUpload() { return 0; }

  protected:
    std::atomic<int> fd_{-1}; // -1 for none

  private:
    SocketWriters writers_;
    int index_;
    std::string interfaceName_; // LIN<index>
};
