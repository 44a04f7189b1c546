#pragma once

#include "net/SocketWriters.h"

#include <atomic>
#include <cstddef>

namespace net {

// The two sockets of one CAN channel, both on the Xilinx core's net device: a raw one for single
// frames, and one of the broadcast manager for periodic tasks. Any thread may write; opening and
// closing belong to the main thread.
class ZephCanCom {
  public:
    static constexpr int canSocketSendBufferSize = 8192; // bytes
    static constexpr int canSocketRecvBufferSize = 8192;

    explicit ZephCanCom(int index); // channel 0 to 5
    ZephCanCom(const ZephCanCom&) = delete;
    ZephCanCom& operator=(const ZephCanCom&) = delete;
    virtual ~ZephCanCom();

    // 0, or an errno, which is told on standard output as well. What was opened before a failure
    // stays open.
    virtual int Open();

    // Sends a can_frame (type 0) or a canfd_frame (type 1), marked as a single frame. `protocol`
    // makes a classic frame a remote frame, and gives an FD frame the bit rate switch; `extend`
    // makes the identifier an extended one. Changes the frame. 0; a negated errno; 61446 without a
    // frame; another type is returned as it is.
    virtual int Write(void* frame, int type, int protocol, int extend);

    // Frames come by way of the capture, so that nothing is read here: always -61441.
    virtual int Read();

    // Closes both sockets, in the manner of Close(). -61442 when one stays open; the second is not
    // tried after a failure of the first.
    virtual int CloseAll(int mode);

    // The socket of the broadcast manager, still owned here; negative when there is none.
    virtual int getfd2() const { return fd2_; }

    // Mode 0: orderly, and -61442 with the descriptor left open when the socket has an error
    // pending; mode 1: at once. -61441 for another mode.
    static int Close(int fd, int mode);

    // Flags of the identifier. Type 0 is a can_frame, 1 a canfd_frame; the checks give -61441 for
    // another type, and the setters leave such a frame alone.
    static int CheckExtendedFrame(const void* frame, int type);
    static int CheckRemoteFrame(const void* frame, int type);
    static int SetExtendedFrame(void* frame, int type);
    static int SetRemoteFrame(void* frame, int type);

    // As setsockopt and fcntl return.
    static int SetSocketFdMode(int fd, int value);
    static int SetSocketLoopbackmode(int fd, int value);
    static int SetSocketErrMode(int fd, int value);
    static int SetSocketSendBuffer(int fd);
    static int SetSocketRecvBuffer(int fd);
    static int SetSocketNonBlock(int fd);

  protected:
    // Sockets, -1 for none.
    std::atomic<int> fd1_{-1}; // raw
    std::atomic<int> fd2_{-1}; // broadcast manager

  private:
    int OpenSingleSocket();
    int OpenPeriodSocket();
    int WriteCanFrame(void* frame, int remote, int extend);
    int WriteCanfdFrame(void* frame, int brs, int extend);
    int WriteFrame(const void* frame, size_t size);

    SocketWriters writers_; // of fd1_; the other one is the main thread's

    int index_;
};

} // namespace net
