#pragma once

#include <cstdint>
#include <string>

namespace vcihost {

// The file that a board's console lands in, read forward as it grows. Used on one thread.
class ConsoleFile {
  public:
    // Starts at the end of the file as it is now, at 0 when there is none yet.
    explicit ConsoleFile(std::string path);

    // True when `text` stands behind the position; the position is then behind it.
    bool Find(const std::string& text);

    // What stands behind the position; nothing new when the file cannot be read.
    std::string Rest() const;

    // Back to the beginning.
    void Rewind() { position_ = 0; }

  private:
    std::string path_;
    uint64_t position_ = 0;
};

} // namespace vcihost
