#pragma once

#include "vcihost/BufferedFile.h"
#include "vcihost/ClockPair.h"
#include "vcihost/RecordWriter.h"

#include <memory>
#include <vector>

// Files of records. Times in them are wall-clock times.
namespace vcihost {

// What the extension of a file says.
enum class RecordFormat {
    Pcapng, // .pcapng
    Log,    // .log, the text log of candump(1)
};

// Throws FileError for an extension that says nothing.
RecordFormat FormatOfPath(const std::string& path);

struct RecordFileOptions {
    ClockPair clock;
    std::vector<RecordChannel>
        channels;            // each becomes an interface of a capture file, in this order
    std::string device;      // the link, for a comment
    std::string application; // name and version of the program
};

// A writer to a new file, of the format that its extension says. Throws FileError, also for a text
// log of LIN channels, which it cannot hold.
std::unique_ptr<RecordWriter> MakeRecordFile(const std::string& path,
                                             const RecordFileOptions& options);

} // namespace vcihost
