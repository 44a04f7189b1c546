#include "vcihost/BufferedFile.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

namespace vcihost {

namespace {

// Some thousands of records a write(2).
constexpr size_t kBuffer = 256UL * 1024;
constexpr mode_t kMode = 0666; // less the umask

} // namespace

BufferedFile::BufferedFile(std::string path)
    : path_(std::move(path)),
      fd_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kMode)) {
    if (!fd_) {
        throw FileError(fmt::format("cannot make {}: {}", path_, std::strerror(errno)));
    }
    buffer_.reserve(kBuffer);
}

BufferedFile::~BufferedFile() {
    try {
        Flush();
    } catch (const std::exception&) { // nobody is left to be told
        buffer_.clear();
    }
}

void BufferedFile::Append(std::span<const uint8_t> bytes) {
    if (buffer_.size() + bytes.size() > kBuffer) {
        Flush();
    }
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

void BufferedFile::Append(std::string_view text) {
    Append(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void BufferedFile::Flush() {
    size_t done = 0;
    while (done < buffer_.size()) {
        const ssize_t written = write(fd_.get(), buffer_.data() + done, buffer_.size() - done);
        if (written >= 0) {
            done += static_cast<size_t>(written);
        } else if (errno != EINTR) {
            const int code = errno;
            buffer_.clear();
            throw FileError(fmt::format("cannot write {}: {}", path_, std::strerror(code)));
        }
    }
    buffer_.clear();
}

} // namespace vcihost
