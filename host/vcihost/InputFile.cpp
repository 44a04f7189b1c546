#include "vcihost/InputFile.h"

#include "vcihost/BufferedFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>

namespace vcihost {

std::ifstream OpenInput(const std::string& path) {
    std::error_code ignored;
    errno = 0;
    std::ifstream input(path, std::ios::binary);
    if (!input || std::filesystem::is_directory(path, ignored)) {
        throw FileError(
            fmt::format("cannot read {}: {}", path, std::strerror(input ? EISDIR : errno)));
    }
    return input;
}

void CheckReadToEnd(const std::istream& input, const std::string& path) {
    if (input.bad()) {
        throw FileError(fmt::format("cannot read {} to its end", path));
    }
}

} // namespace vcihost
