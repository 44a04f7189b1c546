#include "vcihost/Transport.h"

#include "vcihost/DeviceTransport.h"
#include "vcihost/SocketTransport.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include <fmt/format.h>

namespace vcihost {

namespace {

// What to do about a failure, to stand behind its cause; empty where the cause says it all.
const char* Advice(int code) {
    switch (code) {
    case ENOENT:
    case ENXIO:
    case ENODEV:
    case ECONNREFUSED:
        return "; connect the device, or name another path with --device";
    case EBUSY:
    case EAGAIN:
        return "; another program has it open: end that one first";
    case EACCES:
    case EPERM:
        return "; run as root, or let your user open it";
    default:
        return "";
    }
}

} // namespace

std::unique_ptr<Transport> Transport::Open(const std::string& path, const Waiter& waiter) {
    struct stat status {};
    // A path that cannot be looked at is left to open(2), which says why.
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISSOCK(status.st_mode)) {
            return std::make_unique<SocketTransport>(path, waiter);
        }
        if (!S_ISCHR(status.st_mode)) {
            throw TransportError(
                fmt::format("cannot open {}: neither a character device nor a socket", path),
                ENOTTY);
        }
    }
    return std::make_unique<DeviceTransport>(path, waiter);
}

void Transport::Fail(const char* action, int code) const {
    throw TransportError(
        fmt::format("cannot {} {}: {}{}", action, path_, std::strerror(code), Advice(code)), code);
}

void Transport::FailToSend(size_t sent, size_t size) const {
    throw TransportError(fmt::format("{} took {} of {} bytes in time; does the application on the "
                                     "device run?",
                                     path_, sent, size),
                         ETIMEDOUT);
}

void Transport::FailClosed() const {
    throw TransportError(fmt::format("{} was closed by the device", path_), EPIPE);
}

} // namespace vcihost
