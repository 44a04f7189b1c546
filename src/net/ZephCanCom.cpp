#include "net/ZephCanCom.h"

#include "utils/Console.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace net {

namespace {

constexpr int kBadTypeOrMode = -0xF001;
constexpr int kSocketError = -0xF002;
constexpr int kNullFrame = 0xF006; // positive, unlike its neighbours

constexpr int kClassic = 0;
constexpr int kFd = 1;

constexpr int kOrderly = 0;
constexpr int kHard = 1;

constexpr uint8_t kSingleMark = 1; // tells the driver a single frame from a periodic one

// Both kinds of frame begin with the identifier.
canid_t* Identifier(void* frame, int type) {
    if (type == kClassic) {
        return &static_cast<can_frame*>(frame)->can_id;
    }
    return type == kFd ? &static_cast<canfd_frame*>(frame)->can_id : nullptr;
}

int CheckFlag(const void* frame, int type, canid_t flag) {
    const canid_t* const id = Identifier(const_cast<void*>(frame), type); // only read
    if (id == nullptr) {
        return kBadTypeOrMode;
    }
    return (*id & flag) != 0 ? 1 : 0;
}

int SetFlag(void* frame, int type, canid_t flag) {
    if (canid_t* const id = Identifier(frame, type); id != nullptr) {
        *id |= flag;
    }
    return 0;
}

int SetOption(int fd, int level, int option, int value) {
    return setsockopt(fd, level, option, &value, sizeof(value));
}

// The address of can<index>; false, with errno, when there is no such device.
bool FindDevice(int fd, int index, sockaddr_can& address) {
    ifreq request{};
    ("can" + std::to_string(index)).copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(fd, SIOCGIFINDEX, &request) < 0) {
        return false;
    }
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(request.ifr_name));
    return true;
}

// What comes before the close in each mode.
int PrepareClose(int fd, int mode) {
    if (mode == kOrderly) {
        shutdown(fd, SHUT_WR);
        int pending = 0;
        socklen_t size = sizeof(pending);
        if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &size) < 0 || pending != 0) {
            return kSocketError;
        }
    } else if (mode != kHard) {
        return kBadTypeOrMode;
    }
    return 0;
}

void PrintFailure(int error) {
    char text[40];
    snprintf(text, sizeof(text), "Open fd failed: 0x%x", static_cast<unsigned>(error));
    PrintLine(text);
}

} // namespace

ZephCanCom::ZephCanCom(int index) : index_(index) {}

ZephCanCom::~ZephCanCom() {
    for (std::atomic<int>* fd : {&fd1_, &fd2_}) {
        if (*fd >= 0) {
            close(*fd);
        }
    }
}

int ZephCanCom::Open() {
    int error = OpenSingleSocket();
    if (error == 0) {
        error = OpenPeriodSocket();
    }
    if (error != 0) {
        PrintFailure(error);
    }
    return error;
}

int ZephCanCom::OpenSingleSocket() {
    const int fd = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
    sockaddr_can address{};
    if (fd < 0 || !FindDevice(fd, index_, address) ||
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
        Close(fd, kHard); // of a socket that was not made: EBADF, which is then what is told
        return errno;
    }
    SetSocketNonBlock(fd);
    SetSocketLoopbackmode(fd, 0); // the capture hears what is sent here
    SetSocketFdMode(fd, 1);
    if (const int old = fd1_.exchange(fd); old >= 0) {
        writers_.Close(old); // opens that follow one another leave no socket behind
    }
    return 0;
}

int ZephCanCom::OpenPeriodSocket() {
    const int fd = socket(AF_CAN, SOCK_DGRAM | SOCK_CLOEXEC, CAN_BCM);
    sockaddr_can address{};
    if (fd < 0 || !FindDevice(fd, index_, address) ||
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
        Close(fd, kHard);
        return errno;
    }
    SetSocketNonBlock(fd);
    // Options of raw sockets: where the broadcast manager refuses them nothing is lost.
    SetSocketLoopbackmode(fd, 0);
    SetSocketFdMode(fd, 1);
    if (const int old = fd2_.exchange(fd); old >= 0) {
        close(old);
    }
    return 0;
}

int ZephCanCom::Write(void* frame, int type, int protocol, int extend) {
    switch (type) {
    case kClassic:
        return WriteCanFrame(frame, protocol, extend);
    case kFd:
        return WriteCanfdFrame(frame, protocol, extend);
    default:
        return type;
    }
}

int ZephCanCom::WriteFrame(const void* frame, size_t size) {
    const SocketWriters::Inside inside(writers_);
    const int fd = fd1_;
    ssize_t written = write(fd, frame, size);
    if (written < 0 && errno == ENETDOWN) {
        written = write(fd, frame, size); // the moment just after the device came up
    }
    return written == static_cast<ssize_t>(size) ? 0 : -errno;
}

int ZephCanCom::WriteCanFrame(void* frame, int remote, int extend) {
    if (frame == nullptr) {
        return kNullFrame;
    }
    static_cast<can_frame*>(frame)->__res0 = kSingleMark;
    if (remote != 0) {
        SetRemoteFrame(frame, kClassic);
    }
    if (extend != 0) {
        SetExtendedFrame(frame, kClassic);
    }
    return WriteFrame(frame, CAN_MTU);
}

int ZephCanCom::WriteCanfdFrame(void* frame, int brs, int extend) {
    if (frame == nullptr) {
        return kNullFrame;
    }
    auto* const fd = static_cast<canfd_frame*>(frame);
    fd->__res0 = kSingleMark;
    if (extend != 0) {
        SetExtendedFrame(frame, kFd);
    }
    if (brs != 0) {
        fd->flags |= CANFD_BRS;
    }
    return WriteFrame(frame, CANFD_MTU);
}

int ZephCanCom::Read() {
    return kBadTypeOrMode;
}

int ZephCanCom::CloseAll(int mode) {
    if (PrepareClose(fd1_, mode) != 0) {
        return kSocketError;
    }
    if (const int closing = fd1_.exchange(-1); closing >= 0) {
        writers_.Close(closing); // a replay may be running meanwhile
    }
    if (Close(fd2_, mode) != 0) {
        return kSocketError;
    }
    fd2_ = -1;
    return 0;
}

int ZephCanCom::Close(int fd, int mode) {
    const int result = PrepareClose(fd, mode);
    if (result == 0) {
        close(fd);
    }
    return result;
}

int ZephCanCom::CheckExtendedFrame(const void* frame, int type) {
    return CheckFlag(frame, type, CAN_EFF_FLAG);
}

int ZephCanCom::CheckRemoteFrame(const void* frame, int type) {
    return CheckFlag(frame, type, CAN_RTR_FLAG);
}

int ZephCanCom::SetExtendedFrame(void* frame, int type) {
    return SetFlag(frame, type, CAN_EFF_FLAG);
}

int ZephCanCom::SetRemoteFrame(void* frame, int type) {
    return SetFlag(frame, type, CAN_RTR_FLAG);
}

int ZephCanCom::SetSocketFdMode(int fd, int value) {
    return SetOption(fd, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, value);
}

int ZephCanCom::SetSocketLoopbackmode(int fd, int value) {
    return SetOption(fd, SOL_CAN_RAW, CAN_RAW_LOOPBACK, value);
}

int ZephCanCom::SetSocketErrMode(int fd, int value) {
    return SetOption(fd, SOL_CAN_RAW, CAN_RAW_ERR_FILTER, value);
}

int ZephCanCom::SetSocketSendBuffer(int fd) {
    return SetOption(fd, SOL_SOCKET, SO_SNDBUF, canSocketSendBufferSize);
}

int ZephCanCom::SetSocketRecvBuffer(int fd) {
    return SetOption(fd, SOL_SOCKET, SO_RCVBUF, canSocketRecvBufferSize);
}

int ZephCanCom::SetSocketNonBlock(int fd) {
    const int flags = fcntl(fd, F_GETFL, 0);
    return flags < 0 ? flags : fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

} // namespace net
