#include "vcihost/Trace.h"

#include "vcihost/InputFile.h"
#include "vcihost/Notation.h"
#include "vcihost/TraceReader.h"

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr size_t kMostInterfaces = 1000;

} // namespace

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
    const auto [found, isNew] = numbers_.try_emplace(name, interfaces.size());
    if (isNew) {
        if (interfaces.size() == kMostInterfaces) {
            throw NotationError(fmt::format(
                "more than {} interfaces; is this a trace of one bench?", kMostInterfaces));
        }
        interfaces.push_back(name);
    }
    return found->second;
}

} // namespace vcihost
