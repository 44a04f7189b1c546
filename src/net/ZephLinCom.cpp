#include "net/ZephLinCom.h"

#include "utils/Console.h"
#include "utils/UniqueFd.h"

#include <cerrno>
#include <cstdio>

#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kOrderly = 0;
constexpr int kAtOnce = 1;

static_assert(CANFD_MTU == 72 && sizeof(sockaddr_can) == 24);
static_assert(SOL_CAN_RAW == 101 && CAN_RAW_FD_FRAMES == 5);

// Ends the sending side and asks for an error that nobody has seen yet. False for either.
bool EndOrderly(int fd) {
    // A raw CAN socket has no sides that could be ended: its refusal is no error.
    if (shutdown(fd, SHUT_WR) < 0 && errno != EOPNOTSUPP) {
        return false;
    }
    int pending = 0;
    socklen_t size = sizeof(pending);
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &size) == 0 && pending == 0;
}

} // namespace

ZephLinCom::ZephLinCom(int index) : index_(index), interfaceName_("LIN" + std::to_string(index)) {
    PrintLine("ZephLinCom" + std::to_string(index_) + " has created");
}

ZephLinCom::~ZephLinCom() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

int ZephLinCom::Open() {
    UniqueFd fd(socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW));
    if (!fd) {
        perror("Socket creation failed");
        return -1;
    }
    PrintLine("1 socket fd_：" + std::to_string(fd.get()));
    ifreq request{};
    interfaceName_.copy(request.ifr_name, IFNAMSIZ - 1);
    if (ioctl(fd.get(), SIOCGIFINDEX, &request) < 0) {
        perror("Interface index retrieval failed");
        return -1;
    }
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(interfaceName_.c_str()));
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
        perror("connect error");
        return -1;
    }
    const int on = 1; // a frame's 40 bytes are more than a classic one takes
    if (setsockopt(fd.get(), SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof(on)) < 0) {
        perror("set sockopt failed");
        return -1;
    }
    if (const int old = fd_.exchange(fd.release()); old >= 0) {
        writers_.Close(old);
    }
    return 0;
}

int ZephLinCom::Write(const canfd_frame* frame) {
    if (frame == nullptr) {
        PrintLine("ZephLinCom::Write cfd_frame is nullptr");
        return -1;
    }
    ssize_t written = 0;
    {
        const SocketWriters::Inside inside(writers_);
        written = write(fd_, frame, sizeof(*frame));
    }
    if (written < 0) {
        perror("write error");
        PrintLine("pid: " + std::to_string(frame->can_id) + " ,send fail");
        return -1;
    }
    return 0;
}

int ZephLinCom::Close(int mode) {
    if (mode != kOrderly && mode != kAtOnce) {
        return -1;
    }
    if (mode == kOrderly && !EndOrderly(fd_)) {
        return -1;
    }
    if (const int closing = fd_.exchange(-1); closing >= 0) {
        writers_.Close(closing); // a schedule may be running meanwhile
    }
    return 0;
}
