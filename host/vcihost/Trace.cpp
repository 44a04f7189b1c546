#include "vcihost/Trace.h"

#include "vcihost/BufferedFile.h"
#include "vcihost/TraceReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

namespace vcihost {

Trace Trace::Read(const std::string& path) {
    Trace trace;
    trace.path = path;
    std::error_code ignored;
    errno = 0;
    std::ifstream input(path, std::ios::binary);
    if (!input || std::filesystem::is_directory(path, ignored)) {
        throw FileError(
            fmt::format("cannot read {}: {}", path, std::strerror(input ? EISDIR : errno)));
    }
    if (IsCapture(input, path)) {
        ReadCapture(input, trace);
    } else {
        ReadLog(input, trace);
    }
    if (input.bad()) {
        throw FileError(fmt::format("cannot read {} to its end", path));
    }
    return trace;
}

std::string Trace::Place(const TraceFrame& frame) const {
    return fmt::format("{}, {} {}", path, unit, frame.number);
}

size_t Trace::Interface(const std::string& name) {
    const auto found = std::find(interfaces.begin(), interfaces.end(), name);
    if (found == interfaces.end()) {
        interfaces.push_back(name);
        return interfaces.size() - 1;
    }
    return static_cast<size_t>(found - interfaces.begin());
}

} // namespace vcihost
