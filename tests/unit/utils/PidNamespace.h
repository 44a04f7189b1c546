#pragma once

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

// Runs a test's body where it sees no process but its own, so that it can end none of the
// machine's.
class PidNamespace {
  public:
    // Runs `body`, with its own process id namespace and /proc where that is permitted, else in
    // this process. Failures in `body` are failures of the running test; so is a body that dies.
    static void Run(const std::function<void()>& body) {
        fflush(nullptr);
        switch (InChild(
            [&] { return Enter() ? InChild([&] { return Init(body); }) : int{kNotPermitted}; })) {
        case kPassed:
            break;
        case kNotPermitted:
            body();
            break;
        case kFailed:
            ADD_FAILURE() << "the test failed in its namespace, as printed above";
            break;
        default:
            ADD_FAILURE() << "the test died in its namespace";
        }
    }

  private:
    enum Result {
        kPassed,
        kFailed,
        kNotPermitted,
        kDied,
    };

    // Namespaces for the children of this process, whoever runs the test.
    static bool Enter() {
        const std::string root = "0 " + std::to_string(geteuid()) + " 1";
        return unshare(CLONE_NEWPID | CLONE_NEWNS) == 0 ||
               (unshare(CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNS) == 0 &&
                std::ofstream("/proc/self/uid_map") << root << std::flush);
    }

    // The first process of the namespace: it adopts orphans, so that they are no children of the
    // body's process.
    static int Init(const std::function<void()>& body) {
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("proc", "/proc", "proc", 0, nullptr) != 0) {
            return kNotPermitted;
        }
        return InChild([&] {
            body();
            return testing::Test::HasFailure() ? kFailed : kPassed;
        });
    }

    template <typename Action> static int InChild(Action action) {
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that is ended leaves nothing running
            EndWith(action());
        }
        return child > 0 ? Wait(child) : kNotPermitted;
    }

    // Waits for the end of `child`; the first process of a namespace also of those it adopted.
    static int Wait(pid_t child) {
        int status = 0;
        for (pid_t ended = 0; ended != child;) {
            ended = waitpid(getpid() == 1 ? -1 : child, &status, 0);
            if (ended < 0) {
                return kDied;
            }
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : int{kDied};
    }

    [[noreturn]] static void EndWith(int result) {
        fflush(nullptr);
        _exit(result);
    }
};
