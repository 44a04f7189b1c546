#pragma once

#include "utils/UniqueFd.h"

#include <chrono>

// Turns the first SIGINT, SIGTERM or SIGHUP into a readable descriptor, so that a command can close
// its account; a second one ends the program at once. Signals that are ignored stay so. One object
// a process, made before any thread.
class Interrupt {
  public:
    Interrupt();

    // Readable once a signal has come.
    int fd() const { return fd_.get(); }

    // True once a signal has come. Who does not wait for fd() looks at least so often.
    static bool Came();
    static constexpr std::chrono::milliseconds kLongestWait{100};

    // Ends the program by the signal that came, so that a calling shell sees it.
    [[noreturn]] static void EndBySignal();

  private:
    UniqueFd fd_;
};
