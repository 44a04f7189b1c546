#include "vcihost/CandumpLog.h"

#include "vcihost/SocketCan.h"

#include <ctime>

#include <fmt/chrono.h>

namespace vcihost {

namespace {

constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint64_t kMicrosecond = 1000;

std::string Head(uint64_t wall, uint8_t channel) {
    return fmt::format("({:010}.{:06}) can{} ", wall / kSecond, wall % kSecond / kMicrosecond,
                       channel);
}

} // namespace

std::string CandumpLogLine(const CanFrameRecord& record, uint64_t wall) {
    std::string line = Head(wall, record.channel);
    line += record.Text();
    line += '\n';
    return line;
}

std::string CandumpLogLine(const CanErrorRecord& record, uint64_t wall) {
    std::string line = Head(wall, record.channel);
    line += fmt::format("{:08X}#", SocketCanId(record));
    for (const uint8_t byte : SocketCanErrorData(record)) {
        line += fmt::format("{:02X}", byte);
    }
    line += '\n';
    return line;
}

std::string CandumpLogName(uint64_t wall) {
    return fmt::format("candump-{:%Y-%m-%d_%H%M%S}.log",
                       fmt::localtime(static_cast<std::time_t>(wall / kSecond)));
}

} // namespace vcihost
