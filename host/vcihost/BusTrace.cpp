#include "vcihost/BusTrace.h"

#include "vcihost/CanChannel.h"
#include "vcihost/Notation.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include <fmt/format.h>

namespace vcihost {

namespace {

int64_t ParseTime(const std::string& text) {
    const auto time = ParseNumber(text, std::numeric_limits<int64_t>::max());
    if (!time) {
        throw NotationError(fmt::format("'{}' is no time in nanoseconds", text));
    }
    return static_cast<int64_t>(*time);
}

BusTrace::Entry ParseEntry(const std::string& line) {
    std::istringstream words(line);
    std::string queued;
    std::string start;
    std::string end;
    std::string channel;
    std::string frame;
    std::string origin;
    std::string result;
    std::string more;
    if (!(words >> queued >> start >> end >> channel >> frame >> origin >> result) ||
        words >> more) {
        throw NotationError("not the seven words 'queued start end channel frame origin result'");
    }
    BusTrace::Entry entry;
    entry.queued = ParseTime(queued);
    entry.start = ParseTime(start);
    entry.end = ParseTime(end);
    if (entry.start < entry.queued || entry.end < entry.start) {
        throw NotationError("queued, start and end do not follow each other");
    }
    entry.channel = ParseCanChannel(channel);
    entry.frame = ParseLoggedCanFrame(frame);
    entry.periodic = origin == "bcm";
    entry.ok = result == "ok";
    return entry;
}

// The count of a "# lost N" line; 0 for any other comment.
uint64_t LostCount(const std::string& line) {
    std::istringstream words(line.substr(1));
    std::string word;
    std::string count;
    if (words >> word >> count && word == "lost") {
        return ParseNumber(count, std::numeric_limits<uint32_t>::max()).value_or(0);
    }
    return 0;
}

} // namespace

// Frames of one bus do not overlap, so that the last one before decides.
bool BusTrace::HadToWait(size_t index) const {
    const Entry& entry = entries[index];
    for (size_t i = index; i-- > 0;) {
        if (entries[i].channel == entry.channel) {
            return entries[i].end > entry.queued;
        }
    }
    return false;
}

BusTrace BusTrace::Read(std::istream& input, const std::string& name) {
    BusTrace trace;
    std::string line;
    for (size_t number = 1; std::getline(input, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        if (line.front() == '#') {
            trace.lost += LostCount(line);
            continue;
        }
        try {
            trace.entries.push_back(ParseEntry(line));
        } catch (const NotationError& error) {
            throw NotationError(fmt::format("{}, line {}: {}", name, number, error.what()));
        }
    }
    std::stable_sort(trace.entries.begin(), trace.entries.end(),
                     [](const Entry& a, const Entry& b) { return a.start < b.start; });
    return trace;
}

} // namespace vcihost
