#pragma once

#include <utility>

#include <unistd.h>

// The one owner of a descriptor: closes it when it goes. Bound to no thread; one owner uses it.
class UniqueFd {
  public:
    UniqueFd() = default;
    // `fd`: an open descriptor to own, or a negative number for none.
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

    // The descriptor, still owned; negative when there is none.
    int get() const { return fd_; }

    // The descriptor, from now on the caller's to close.
    [[nodiscard]] int release() { return std::exchange(fd_, kNone); }

    // Closes what is owned and owns `fd` instead.
    void reset(int fd = kNone) {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) {
            close(old); // a close that reports an error has closed the descriptor all the same
        }
    }

    // True when a descriptor is owned; 0 is one.
    explicit operator bool() const { return fd_ >= 0; }

  private:
    static constexpr int kNone = -1;

    int fd_ = kNone;
};
