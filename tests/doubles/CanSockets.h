#pragma once

#include "net/ZephCanComM.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

// The sockets of a channel without a bus: what is written to them stands here for the test to read,
// message by message.
class CanSockets : public net::ZephCanCom {
  public:
    using Message = std::vector<uint8_t>;

    explicit CanSockets(int index) : ZephCanCom(index) {}
    ~CanSockets() override { CloseEnds(); }

    int Open() override {
        CloseEnds();
        fd1_ = Pair(rawEnd_);
        fd2_ = Pair(bcmEnd_);
        ++opened;
        return 0;
    }

    int getfd2() const override {
        if (beforePeriodic) {
            beforePeriodic();
        }
        return ZephCanCom::getfd2();
    }

    int CloseAll(int mode) override {
        if (beforeClose) {
            beforeClose();
        }
        return ZephCanCom::CloseAll(mode);
    }

    int Raw() const { return fd1_; }

    std::vector<Message> Frames() const { return TakeAll(rawEnd_); }
    std::vector<Message> Periodic() const { return TakeAll(bcmEnd_); } // to the broadcast manager

    // The periodic path's next writes fail.
    void BreakPeriodic() {
        close(bcmEnd_);
        bcmEnd_ = -1;
    }

    int opened = 0;
    std::function<void()> beforePeriodic;
    std::function<void()> beforeClose;

    // Puts such sockets in place of all six channels.
    static std::array<std::shared_ptr<CanSockets>, 6> Replace(net::ZephCanComM& manager) {
        std::array<std::shared_ptr<CanSockets>, 6> channels;
        for (uint8_t ch = 0; ch < channels.size(); ++ch) {
            channels.at(ch) = std::make_shared<CanSockets>(ch);
            manager.ReplaceChannel(ch, channels.at(ch));
        }
        return channels;
    }

    // Such sockets in place of those of the whole program, from the first call on.
    static std::array<std::shared_ptr<CanSockets>, 6>& OfProgram() {
        static auto channels = Replace(net::ZephCanComM::GetInstance());
        return channels;
    }

  private:
    static int Pair(int& end) {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        end = fds[1];
        // Room for a burst.
        const int size = 1 << 20;
        setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
        return fds[0];
    }

    static std::vector<Message> TakeAll(int end) {
        std::vector<Message> messages;
        Message bytes(256);
        for (ssize_t got; (got = recv(end, bytes.data(), bytes.size(), 0)) > 0;) {
            messages.emplace_back(bytes.begin(), bytes.begin() + got);
        }
        return messages;
    }

    void CloseEnds() {
        for (int* end : {&rawEnd_, &bcmEnd_}) {
            if (*end >= 0) {
                close(*end);
                *end = -1;
            }
        }
        for (auto* fd : {&fd1_, &fd2_}) {
            if (const int old = fd->exchange(-1); old >= 0) {
                close(old);
            }
        }
    }

    int rawEnd_ = -1;
    int bcmEnd_ = -1;
};
