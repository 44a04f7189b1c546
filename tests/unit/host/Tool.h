#pragma once

#include "utils/TempDir.h"

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// How a run of vcictl ended.
struct ToolResult {
    int status = -1; // exit status; the signal's number, negated, when a signal ended it
    std::string out;
    std::string err;
};

struct ToolOptions {
    std::string input = {};
    std::vector<std::string> environment = {}; // "NAME=value", besides the test's own
    std::string output = {};                   // file for standard output, in place of Out()
    std::vector<std::string> prefix = {};      // a program that starts the tool
};

// One run of vcictl as a process of its own, killed if it still runs when this goes.
class Tool {
  public:
    explicit Tool(const std::vector<std::string>& arguments, const ToolOptions& options = {}) {
        dir_.Write("in", options.input);
        std::vector<std::string> words = options.prefix;
        words.emplace_back(VCICTL_BINARY);
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<std::string> variables = options.environment;
        for (char** each = environ; *each != nullptr; ++each) {
            const std::string variable = *each;
            if (!variable.starts_with("VCI") && !variable.starts_with("VBOARD")) {
                variables.push_back(variable);
            }
        }
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, (dir_ / "in").c_str(), O_RDONLY, 0);
        const std::string out = options.output.empty() ? dir_ / "out" : options.output;
        posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT,
                                         0600);
        posix_spawn_file_actions_addopen(&files, STDERR_FILENO, (dir_ / "err").c_str(),
                                         O_WRONLY | O_CREAT, 0600);
        const int error = posix_spawnp(&pid_, words.front().c_str(), &files, nullptr,
                                       Pointers(words).data(), Pointers(variables).data());
        posix_spawn_file_actions_destroy(&files);
        if (error != 0) {
            throw std::runtime_error("cannot start " + words.front());
        }
    }

    ~Tool() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    ToolResult Finish() {
        ToolResult result;
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        result.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
        result.out = Out();
        result.err = dir_.Read("err");
        return result;
    }

    void Signal(int signal) const { kill(pid_, signal); }

    // What it has written to standard output so far.
    std::string Out() const { return dir_.Read("out"); }

    // Waits until it has written `text`; false when it has not within ten seconds.
    bool WaitForOut(const std::string& text) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (Out().find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

  private:
    static std::vector<char*> Pointers(std::vector<std::string>& words) {
        std::vector<char*> pointers;
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
        return pointers;
    }

    TempDir dir_;
    pid_t pid_ = -1;
};

inline ToolResult RunTool(const std::vector<std::string>& arguments,
                          const ToolOptions& options = {}) {
    return Tool(arguments, options).Finish();
}
