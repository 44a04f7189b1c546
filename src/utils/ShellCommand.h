#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

// A shell command whose output is being read. The pipe is close-on-exec. Bound to no thread; every
// operation blocks until the command has written or ended.
class ShellCommand {
  public:
    explicit ShellCommand(const std::string& line) : pipe_(popen(line.c_str(), "re")) {}
    ~ShellCommand() { Wait(); }
    ShellCommand(const ShellCommand&) = delete;
    ShellCommand& operator=(const ShellCommand&) = delete;

    // False when the command could not be run; nothing below may be called then, but Wait.
    explicit operator bool() const { return pipe_ != nullptr; }

    // The next piece of output: a line with its line feed, or the 255 bytes of it that fit; none at
    // the end.
    std::optional<std::string> Piece() {
        constexpr size_t kPieceSize = 256; // bytes, terminator included
        char piece[kPieceSize];
        if (fgets(piece, sizeof(piece), pipe_) == nullptr) {
            return std::nullopt;
        }
        return piece;
    }

    // All that is left of the output.
    std::string Rest() {
        std::string all;
        while (const auto piece = Piece()) {
            all += *piece;
        }
        return all;
    }

    // Waits for the end. The wait status; 0 when there is no command any more.
    int Wait() { return pipe_ != nullptr ? pclose(std::exchange(pipe_, nullptr)) : 0; }

  private:
    FILE* pipe_;
};
