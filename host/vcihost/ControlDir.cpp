#include "vcihost/ControlDir.h"

#include "utils/UniqueFd.h"

#include <cerrno>
#include <sstream>
#include <system_error>

#include <fcntl.h>
#include <fnmatch.h>
#include <unistd.h>

namespace vcihost {

namespace {

constexpr size_t kReadSize = 64UL * 1024;

[[noreturn]] void Fail(const char* action, const std::string& path) {
    throw std::system_error(errno, std::generic_category(),
                            std::string("cannot ") + action + " " + path);
}

std::string Squeeze(const std::string& line) {
    std::istringstream words(line);
    std::string squeezed;
    for (std::string word; words >> word;) {
        squeezed += squeezed.empty() ? word : " " + word;
    }
    return squeezed;
}

} // namespace

void ControlDir::Set(const std::string& file, const std::string& value) const {
    const std::string path = path_ + "/" + file;
    const std::string line = value + "\n";
    // Not created: a control file is there, or the name is wrong.
    const UniqueFd fd(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!fd) {
        Fail("open", path);
    }
    const ssize_t written = write(fd.get(), line.data(), line.size());
    if (written >= 0 && static_cast<size_t>(written) < line.size()) {
        errno = EMSGSIZE;
    }
    if (written < 0 || static_cast<size_t>(written) < line.size()) {
        Fail("write to", path);
    }
}

std::string ControlDir::Read(const std::string& file) const {
    const std::string path = path_ + "/" + file;
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        Fail("open", path);
    }
    std::string text;
    for (;;) {
        const size_t had = text.size();
        text.resize(had + kReadSize);
        const ssize_t got = read(fd.get(), text.data() + had, kReadSize);
        if (got < 0) {
            Fail("read", path);
        }
        text.resize(had + static_cast<size_t>(got));
        if (got == 0) {
            return text;
        }
    }
}

bool ControlDir::HasLine(const std::string& text, const std::string& line) {
    const std::string pattern = Squeeze(line);
    std::istringstream lines(text);
    for (std::string each; std::getline(lines, each);) {
        if (fnmatch(pattern.c_str(), Squeeze(each).c_str(), 0) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace vcihost
