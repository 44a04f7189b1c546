#include "vcihost/ShellCommand.h"

#include "utils/UniqueFd.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr size_t kMostOutput = 64UL * 1024; // bytes kept of what a command writes

void Check(int error, const char* what) {
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

// A shell with its output in a file. Killed and reaped when destroyed, unless it was reaped before.
class Shell {
  public:
    Shell(const std::string& command, int output) {
        posix_spawn_file_actions_t files;
        posix_spawnattr_t attributes;
        Check(posix_spawn_file_actions_init(&files), "posix_spawn");
        Check(posix_spawnattr_init(&attributes), "posix_spawn");
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        std::string name = "sh";
        std::string option = "-c";
        std::string text = command;
        char* const arguments[] = {name.data(), option.data(), text.data(), nullptr};
        const int error = posix_spawn(&pid_, "/bin/sh", &files, &attributes, arguments, environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        Check(error, "cannot start /bin/sh");
    }

    ~Shell() {
        if (pid_ > 0) {
            Kill();
            Reap();
        }
    }

    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    pid_t pid() const { return pid_; }

    void Kill() const { kill(-pid_, SIGKILL); }

    int Reap() {
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
        return status;
    }

  private:
    pid_t pid_ = -1;
};

std::string ReadOutput(int fd) {
    std::string text(kMostOutput, '\0');
    const ssize_t got = pread(fd, text.data(), text.size(), 0);
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return text;
}

} // namespace

std::string ShellCommand::Failure() const {
    if (timedOut) {
        return "did not end in time";
    }
    if (WIFSIGNALED(status)) {
        return fmt::format("was ended by signal {}", WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? "" : fmt::format("ended with status {}", WEXITSTATUS(status));
}

ShellCommand ShellCommand::Run(const std::string& command, Deadline deadline,
                               const Waiter& waiter) {
    // A file and not a pipe: a program that the command leaves behind would hold a pipe open.
    const UniqueFd output(memfd_create("command output", MFD_CLOEXEC));
    if (!output) {
        Check(errno, "memfd_create");
    }
    Shell shell(command, output.get());
    // By its number: the C library's header gives its own wrapper the linkage of C++.
    const UniqueFd ended(static_cast<int>(syscall(SYS_pidfd_open, shell.pid(), 0)));
    if (!ended) {
        Check(errno, "pidfd_open");
    }
    ShellCommand result;
    if (waiter.Wait(ended.get(), POLLIN, deadline) == 0) {
        result.timedOut = true;
        shell.Kill();
    }
    result.status = shell.Reap();
    result.output = ReadOutput(output.get());
    return result;
}

} // namespace vcihost
