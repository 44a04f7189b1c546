#pragma once

#include <optional>

#include <termios.h>

// Single keys from a terminal on standard input, while this lives: they come without a line feed
// and are not shown. On anything else than a terminal there are none. Used on one thread.
class KeyInput {
  public:
    KeyInput();
    ~KeyInput();

    KeyInput(const KeyInput&) = delete;
    KeyInput& operator=(const KeyInput&) = delete;

    // The next key that was pressed; nothing when there is none, or when the program is in the
    // background, where reading would stop it.
    std::optional<char> Next() const;

  private:
    bool on_ = false;
    termios before_{};
};
