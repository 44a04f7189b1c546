#pragma once

#include "utils/TempDir.h"
#include "utils/UniqueFd.h"
#include "vcihost/Hex.h"

#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <linux/sockios.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

// A device behind a socket: sends `waiting` to each host that connects, then answers each packet as
// `answer` says. A thread of its own serves one host at a time.
class FakeDevice {
  public:
    using Bytes = vcihost::Bytes;
    using Answers = std::function<std::vector<Bytes>(const Bytes& packet)>;

    explicit FakeDevice(Answers answer, std::vector<Bytes> waiting = {})
        : answer_(std::move(answer)),
          waiting_(std::move(waiting)),
          stop_(eventfd(0, EFD_CLOEXEC)),
          listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path().c_str(), sizeof(address.sun_path) - 1);
        if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(listener_.get(), SOMAXCONN) != 0) { // hosts may come faster than they are served
            throw std::runtime_error("no socket at " + path());
        }
        thread_ = std::thread([this] { Serve(); });
    }

    ~FakeDevice() {
        eventfd_write(stop_.get(), 1);
        thread_.join();
    }

    FakeDevice(const FakeDevice&) = delete;
    FakeDevice& operator=(const FakeDevice&) = delete;

    std::string path() const { return dir_ / "device"; }

    // The packets that hosts have sent.
    std::vector<Bytes> Received() const {
        const std::lock_guard lock(mutex_);
        return received_;
    }

    // Sends one message to the host that is connected.
    void Say(const Bytes& message) {
        const std::lock_guard lock(mutex_);
        send(host_.get(), message.data(), message.size(), MSG_NOSIGNAL);
    }

    // True while the host that is connected has not read all that was sent to it.
    bool IsHostBehind() {
        const std::lock_guard lock(mutex_);
        int bytes = 0;
        return ioctl(host_.get(), SIOCOUTQ, &bytes) == 0 && bytes > 0;
    }

    // Hangs up on the host that is connected, and has `waiting` for the next one.
    void HangUp(std::vector<Bytes> waiting) {
        const std::lock_guard lock(mutex_);
        waiting_ = std::move(waiting);
        shutdown(host_.get(), SHUT_RDWR);
    }

    // Answers hex with hex, packet by packet; no answer when `pairs` holds none.
    static Answers Table(std::vector<std::pair<std::string, std::vector<std::string>>> pairs) {
        return [pairs = std::move(pairs)](const Bytes& packet) {
            std::vector<Bytes> answers;
            for (const auto& [request, hex] : pairs) {
                if (vcihost::ParseHex(request) == packet) {
                    for (const std::string& each : hex) {
                        answers.push_back(vcihost::ParseHex(each));
                    }
                }
            }
            return answers;
        };
    }

    static std::vector<Bytes> Silent(const Bytes& /*packet*/) { return {}; }

  private:
    // False when it is time to stop.
    bool Wait(int fd) const {
        pollfd fds[] = {{stop_.get(), POLLIN, 0}, {fd, POLLIN, 0}};
        return poll(fds, 2, -1) > 0 && fds[0].revents == 0;
    }

    void Serve() {
        while (Wait(listener_.get())) {
            const int host = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
            std::vector<Bytes> waiting;
            {
                const std::lock_guard lock(mutex_);
                host_.reset(host);
                waiting = waiting_;
            }
            for (const Bytes& message : waiting) {
                Say(message);
            }
            while (Wait(host) && ServePacket(host)) {
            }
            const std::lock_guard lock(mutex_);
            host_.reset();
        }
    }

    // False when the host has gone.
    bool ServePacket(int host) {
        Bytes packet(1U << 20U);
        const ssize_t got = recv(host, packet.data(), packet.size(), 0);
        if (got <= 0) {
            return false;
        }
        packet.resize(static_cast<size_t>(got));
        {
            const std::lock_guard lock(mutex_);
            received_.push_back(packet);
        }
        for (const Bytes& message : answer_(packet)) {
            Say(message);
        }
        return true;
    }

    TempDir dir_;
    Answers answer_;
    std::vector<Bytes> waiting_;
    UniqueFd stop_;
    UniqueFd listener_;
    mutable std::mutex mutex_;
    UniqueFd host_;
    std::vector<Bytes> received_;
    std::thread thread_;
};
