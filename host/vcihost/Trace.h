#pragma once

#include "vcihost/CanFrame.h"

#include <map>

// Traces of CAN traffic that were recorded to a file.
namespace vcihost {

// One frame of a trace.
struct TraceFrame {
    uint64_t time = 0;    // nanoseconds, from any start
    uint64_t number = 0;  // of its line or packet in the file, from 1
    size_t interface = 0; // in Trace::interfaces
    CanFrame frame;
};

// The frames of a file, in the order in which they stand there. A plain value.
struct Trace {
    std::string path;
    const char* unit = "line"; // what TraceFrame::number counts
    std::vector<std::string> interfaces;
    std::vector<TraceFrame> frames;
    // What is no frame that could be sent.
    uint64_t errors = 0;   // error frames
    uint64_t comments = 0; // comments and empty lines
    uint64_t others = 0;   // packets of other buses, and blocks without a time

    // Reads a text log as candump(1) writes it, or a capture file of the pcapng format, of which
    // the packets of link type 227 are taken; the content says which. Throws FileError when the
    // file cannot be read, NotationError with path and place for what it must not hold.
    static Trace Read(const std::string& path);

    // "drive.log, line 12".
    std::string Place(const TraceFrame& frame) const;

    // Index of the interface of this name, which is added when it is new. Throws NotationError for
    // more than a thousand.
    size_t Interface(const std::string& name);

  private:
    std::map<std::string, size_t> numbers_; // of the interfaces, by name
};

} // namespace vcihost
