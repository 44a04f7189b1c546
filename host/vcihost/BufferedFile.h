#pragma once

#include "utils/UniqueFd.h"
#include "vcihost/Hex.h"

#include <stdexcept>

namespace vcihost {

// A file cannot be read or written. what() is one line: what was tried, on which path, why it
// failed.
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A file that is written from front to back, in large pieces. Used on one thread.
class BufferedFile {
  public:
    // Makes the file, or empties the one that is there. Throws FileError.
    explicit BufferedFile(std::string path);

    // Writes what is left, if it can. Flush() first to learn whether it could.
    ~BufferedFile();

    BufferedFile(const BufferedFile&) = delete;
    BufferedFile& operator=(const BufferedFile&) = delete;

    // Throws FileError when an earlier piece cannot be written.
    void Append(std::span<const uint8_t> bytes);
    void Append(std::string_view text);

    // Writes what is in the buffer. Throws FileError; what could not be written is then gone.
    void Flush();

    const std::string& path() const { return path_; }

  private:
    std::string path_;
    UniqueFd fd_;
    Bytes buffer_;
};

} // namespace vcihost
