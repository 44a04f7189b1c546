#pragma once

#include "vcihost/Trace.h"

#include <istream>

// The two formats behind Trace::Read(). The streams stand at their first byte; `trace` has its
// path.
namespace vcihost {

// True when the stream begins like a capture file; its place is not changed. Throws NotationError
// for the older format of capture files, FileError for a pipe that gives its first bytes singly.
bool IsCapture(std::istream& input, const std::string& path);

// Both throw NotationError with path and place.
void ReadCapture(std::istream& input, Trace& trace);
void ReadLog(std::istream& input, Trace& trace);

} // namespace vcihost
