#pragma once

#include "utils/UniqueFd.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

// The calling thread in a network namespace of its own, whose only interface is the loopback; home
// again when this goes. So a test may name and raise an interface and hears no foreign traffic.
class NetNamespace {
  public:
    NetNamespace() : home_(OpenCurrent()) {
        if (unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) {
            own_ = OpenCurrent();
        }
    }
    NetNamespace(const NetNamespace&) = delete;
    NetNamespace& operator=(const NetNamespace&) = delete;
    ~NetNamespace() {
        if (own_) {
            // Refused to one who had to make a user namespace: he stays, which no test minds.
            static_cast<void>(setns(home_.get(), CLONE_NEWNET));
        }
    }

    // False where this machine permits no namespace at all.
    bool Entered() const { return static_cast<bool>(own_); }

    // Gives the loopback, while it is down, another name.
    bool RenameLoopback(const std::string& name) const {
        ifreq request{};
        std::strcpy(request.ifr_name, "lo");
        std::strncpy(request.ifr_newname, name.c_str(), IFNAMSIZ - 1);
        return Ask(SIOCSIFNAME, request);
    }

    bool Raise(const std::string& name) const {
        ifreq request{};
        std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
        request.ifr_flags = IFF_UP;
        return Ask(SIOCSIFFLAGS, request);
    }

    // Sends a packet of any protocol out of an interface.
    bool Send(const std::string& name, uint16_t protocol, const std::vector<uint8_t>& data) const {
        if (!IsHere()) {
            return false;
        }
        const UniqueFd fd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_protocol = htons(protocol);
        to.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
        to.sll_halen = 6;
        return sendto(fd.get(), data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&to),
                      sizeof(to)) == static_cast<ssize_t>(data.size());
    }

  private:
    static UniqueFd OpenCurrent() {
        return UniqueFd(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
    }

    // True while the thread is where this object has brought it.
    bool IsHere() const {
        struct stat own {};
        struct stat current {};
        return own_ && fstat(own_.get(), &own) == 0 && fstat(OpenCurrent().get(), &current) == 0 &&
               own.st_ino == current.st_ino;
    }

    // The interfaces of any other namespace, the machine's own above all, are left alone.
    bool Ask(unsigned long what, ifreq& request) const {
        const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        return IsHere() && ioctl(fd.get(), what, &request) == 0;
    }

    UniqueFd home_;
    UniqueFd own_; // none where no namespace was to be had
};
