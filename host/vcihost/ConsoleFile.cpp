#include "vcihost/ConsoleFile.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace vcihost {

ConsoleFile::ConsoleFile(std::string path) : path_(std::move(path)) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(path_, missing);
    position_ = missing ? 0 : size;
}

bool ConsoleFile::Find(const std::string& text) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(path_, missing);
    if (!missing && size < position_) {
        position_ = 0; // the file was begun anew
    }
    const size_t at = Rest().find(text);
    if (at == std::string::npos) {
        return false;
    }
    position_ += at + text.size();
    return true;
}

std::string ConsoleFile::Rest() const {
    std::ifstream file(path_, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(position_));
    if (!file) {
        return {};
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace vcihost
