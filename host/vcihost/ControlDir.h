#pragma once

#include <string>

namespace vcihost {

// A directory of small text files by which a test board is steered and looked at. Used on one
// thread.
class ControlDir {
  public:
    explicit ControlDir(std::string path) : path_(std::move(path)) {}

    // Writes the value and a line feed in one write. Throws std::system_error with the path.
    void Set(const std::string& file, const std::string& value) const;

    // The file's text. Throws std::system_error with the path.
    std::string Read(const std::string& file) const;

    // True when one line of `text`, whole, matches `line` as fnmatch(3) has it. Runs of blanks
    // count as one blank; those at a line's ends do not count.
    static bool HasLine(const std::string& text, const std::string& line);

  private:
    std::string path_;
};

} // namespace vcihost
