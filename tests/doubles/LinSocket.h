#pragma once

#include "net/ZephLinComM.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <system_error>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

// The socket of a LIN channel without a bus: the frames that are written to it stand here for the
// test to read.
class LinSocket : public ZephLinCom {
  public:
    using Frame = std::vector<uint8_t>;

    explicit LinSocket(int index) : ZephLinCom(index) {}
    ~LinSocket() override { CloseEnd(); }

    int Open() override {
        if (failOpen) {
            return -1;
        }
        CloseEnd();
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds) != 0) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        const int size = 1 << 20; // room for a table
        setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
        if (const int old = fd_.exchange(fds[0]); old >= 0) {
            close(old);
        }
        end_ = fds[1];
        return 0;
    }

    int Write(const canfd_frame* frame) override {
        if (beforeWrite) {
            beforeWrite();
        }
        return refuse ? -1 : ZephLinCom::Write(frame);
    }

    int Close(int mode) override {
        closeModes.push_back(mode);
        return failClose ? -1 : ZephLinCom::Close(mode);
    }

    int Fd() const { return fd_; }

    // What was written and not read yet, in order.
    std::vector<Frame> Frames() const {
        std::vector<Frame> frames;
        Frame bytes(256);
        for (ssize_t got; (got = recv(end_, bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0;) {
            frames.emplace_back(bytes.begin(), bytes.begin() + got);
        }
        return frames;
    }

    bool failOpen = false;
    bool failClose = false;
    bool refuse = false; // every frame
    std::vector<int> closeModes;
    std::function<void()> beforeWrite; // on the thread that writes

    // Puts such sockets in place of both channels'.
    static std::array<std::shared_ptr<LinSocket>, 2> Replace(ZephLinComM& manager) {
        std::array<std::shared_ptr<LinSocket>, 2> channels;
        for (uint8_t ch = 0; ch < channels.size(); ++ch) {
            channels.at(ch) = std::make_shared<LinSocket>(ch);
            manager.ReplaceChannel(ch, channels.at(ch));
        }
        return channels;
    }

  private:
    void CloseEnd() {
        if (end_ >= 0) {
            close(end_);
            end_ = -1;
        }
    }

    int end_ = -1;
};
