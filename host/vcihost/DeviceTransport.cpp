#include "vcihost/DeviceTransport.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace vcihost {

namespace {

constexpr size_t kFirstBuffer = 64UL * 1024;          // most messages are far below
constexpr size_t kLargestBuffer = 16UL * 1024 * 1024; // the device's whole ring
// Between two tries when the device shows room, yet too little for what is to be written.
constexpr std::chrono::milliseconds kRoomRetry(1);

} // namespace

DeviceTransport::DeviceTransport(const std::string& path, const Waiter& waiter)
    : Transport(path, waiter),
      fd_(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)),
      buffer_(kFirstBuffer) {
    if (!fd_) {
        Fail("open", errno);
    }
}

void DeviceTransport::Send(std::span<const uint8_t> bytes, Deadline deadline) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t taken = write(fd_.get(), bytes.data() + sent, bytes.size() - sent);
        if (taken >= 0) {
            sent += static_cast<size_t>(taken);
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN) {
            Fail("write to", errno);
        }
        const short shown = waiter().Wait(fd_.get(), POLLOUT, deadline);
        if (shown == 0 || std::chrono::steady_clock::now() >= deadline) {
            FailToSend(sent, bytes.size());
        }
        waiter().Pause(std::min(deadline, After(kRoomRetry)));
    }
}

std::optional<Bytes> DeviceTransport::Receive(Deadline deadline) {
    for (;;) {
        // The wait stands first, so that a device that always has a message can be interrupted.
        const short shown = waiter().Wait(fd_.get(), POLLIN, deadline);
        if (shown == 0) {
            return std::nullopt;
        }
        const ssize_t got = read(fd_.get(), buffer_.data(), buffer_.size());
        if (got > 0) {
            return Bytes(buffer_.begin(), buffer_.begin() + got);
        }
        if (got == 0) {
            FailClosed();
        }
        const int code = errno;
        if (code == EMSGSIZE && buffer_.size() < kLargestBuffer) {
            buffer_.resize(buffer_.size() * 2);
        } else if (code == EAGAIN && (shown & POLLIN) == 0) {
            FailClosed();
        } else if (code != EAGAIN && code != EINTR) {
            Fail("read from", code);
        }
    }
}

} // namespace vcihost
