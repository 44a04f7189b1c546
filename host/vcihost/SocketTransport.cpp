#include "vcihost/SocketTransport.h"

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace vcihost {

SocketTransport::SocketTransport(const std::string& path, const Waiter& waiter)
    : Transport(path, waiter),
      fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    if (!fd_) {
        Fail("make a socket for", errno);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        Fail("connect to", ENAMETOOLONG);
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        Fail("connect to", errno);
    }
}

void SocketTransport::Send(std::span<const uint8_t> bytes, Deadline deadline) {
    // No signal for a closed peer: it is an error like any other.
    while (send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN) {
            Fail("write to", errno);
        }
        if (waiter().Wait(fd_.get(), POLLOUT, deadline) == 0) {
            FailToSend(0, bytes.size());
        }
    }
}

std::optional<Bytes> SocketTransport::Receive(Deadline deadline) {
    for (;;) {
        // The wait stands first, so that a device that always has a message can be interrupted.
        const short shown = waiter().Wait(fd_.get(), POLLIN, deadline);
        if (shown == 0) {
            return std::nullopt;
        }
        // With MSG_TRUNC the result is the packet's whole length, whatever the buffer holds.
        const ssize_t length = recv(fd_.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC);
        if (length < 0) {
            if (errno == EAGAIN || errno == EINTR) {
                continue;
            }
            Fail("read from", errno);
        }
        // An empty packet and the end of the link look alike, but for the hang-up.
        if (length == 0 && (shown & POLLHUP) != 0) {
            FailClosed();
        }
        Bytes message(static_cast<size_t>(length));
        if (recv(fd_.get(), message.data(), message.size(), 0) < 0) {
            Fail("read from", errno);
        }
        return message;
    }
}

} // namespace vcihost
