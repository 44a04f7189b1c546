#include "vcihost/Trace.h"

#include "vcihost/InputFile.h"
#include "vcihost/TraceReader.h"

#include <algorithm>

#include <fmt/format.h>

namespace vcihost {

Trace Trace::Read(const std::string& path) {
    Trace trace;
    trace.path = path;
    std::ifstream input = OpenInput(path);
    if (IsCapture(input, path)) {
        ReadCapture(input, trace);
    } else {
        ReadLog(input, trace);
    }
    CheckReadToEnd(input, path);
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
