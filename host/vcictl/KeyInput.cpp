#include "vcictl/KeyInput.h"

#include <poll.h>
#include <unistd.h>

namespace {

bool InForeground() {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

} // namespace

KeyInput::KeyInput() {
    if (isatty(STDIN_FILENO) == 0 || !InForeground() || tcgetattr(STDIN_FILENO, &before_) != 0) {
        return;
    }
    termios keys = before_;
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO); // Ctrl-C stays what it is
    on_ = tcsetattr(STDIN_FILENO, TCSANOW, &keys) == 0;
}

KeyInput::~KeyInput() {
    if (on_ && InForeground()) {
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
}

std::optional<char> KeyInput::Next() const {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    char key = 0;
    if (!on_ || !InForeground() || poll(&input, 1, 0) <= 0 ||
        read(STDIN_FILENO, &key, sizeof(key)) != sizeof(key)) {
        return std::nullopt;
    }
    return key;
}
