#include "net/SocketWriters.h"

#include <unistd.h>

namespace {

constexpr int kMostWaits = 100;
constexpr useconds_t kWait = 100; // microseconds

} // namespace

SocketWriters::~SocketWriters() {
    CloseAll();
}

void SocketWriters::Close(int fd) {
    closing_.push_back(fd);
    for (int left = kMostWaits; left > 0 && inside_ > 0; --left) {
        usleep(kWait);
    }
    if (inside_ == 0) { // who comes in now finds none of these
        CloseAll();
    }
}

void SocketWriters::CloseAll() {
    for (const int fd : closing_) {
        close(fd);
    }
    closing_.clear();
}
