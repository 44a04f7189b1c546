#include "vcictl/Interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int kShellSignalStatus = 128; // a shell's status for an end by a signal is this and more

// What the handler may touch.
volatile sig_atomic_t signalThatCame = 0;
volatile sig_atomic_t wakeFd = -1;

void HandleSignal(int signal) {
    const int saved = errno;
    signalThatCame = signal;
    const uint64_t one = 1;
    static_cast<void>(!write(wakeFd, &one, sizeof(one)));
    errno = saved;
}

} // namespace

Interrupt::Interrupt() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    wakeFd = fd_.get();
    for (const int signal : kSignals) {
        struct sigaction old {};
        sigaction(signal, nullptr, &old);
        if (old.sa_handler == SIG_IGN) {
            continue;
        }
        // No restart: a write that blocks is to return. Reset: a second signal ends the program.
        struct sigaction action {};
        action.sa_handler = HandleSignal;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigaction(signal, &action, nullptr);
    }
}

bool Interrupt::Came() {
    return signalThatCame != 0;
}

void Interrupt::EndBySignal() {
    const int signal = signalThatCame;
    std::signal(signal, SIG_DFL);
    raise(signal);
    std::_Exit(kShellSignalStatus + signal); // not reached unless the signal is blocked
}
