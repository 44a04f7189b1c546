#include "vcihost/CandumpView.h"

#include <ctime>

#include <fmt/chrono.h>

namespace vcihost {

namespace {

constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint64_t kMicrosecond = 1000;

// By BRS and ESI.
constexpr const char* kFlagTexts[] = {"- -", "B -", "- E", "B E"};

const char* Direction(bool received) {
    return received ? "RX" : "TX";
}

std::string DataText(std::span<const uint8_t> data) {
    std::string text;
    static constexpr char kDigits[] = "0123456789ABCDEF";
    for (const uint8_t byte : data) {
        text += ' ';
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

} // namespace

std::string CandumpView::Line(const CanFrameRecord& record, uint64_t wall) {
    std::string line =
        Head(record.time, wall, CanChannelName(record.channel), Direction(record.received),
             kFlagTexts[(record.brs ? 1 : 0) | (record.esi ? 2 : 0)]);
    wide_ = wide_ || record.extended;
    line += IdText(fmt::format("{:0{}X}", record.id, record.extended ? 8 : 3));
    line += record.fd ? fmt::format("  [{:02}] ", record.Length())
                      : fmt::format("   [{}] ", record.Length());
    return line + (record.remote ? " remote request" : DataText(record.data));
}

std::string CandumpView::Line(const CanErrorRecord& record, uint64_t wall) {
    return Head(record.time, wall, CanChannelName(record.channel), Direction(record.received),
                kFlagTexts[record.esi ? 2 : 0]) +
           record.Text();
}

std::string CandumpView::Line(const LinFrameRecord& record, uint64_t wall) {
    std::string line = Head(record.start, wall, LinChannelName(record.channel),
                            Direction(record.received), kFlagTexts[0]);
    line += IdText(LinIdText(LinIdOf(record.pid)));
    line += fmt::format("   [{}] {}", record.data.size(), DataText(record.data));
    if (!record.data.empty()) {
        const auto type = record.ChecksumType();
        line += fmt::format("  checksum {:02X}", record.checksum);
        line +=
            type == LinChecksumType::Unknown ? "" : fmt::format(" {}", LinChecksumTypeText(type));
    }
    const std::string error = record.ErrorText();
    if (!error.empty()) {
        line += (record.data.empty() ? " " : ", ") + error;
    }
    return line;
}

std::string CandumpView::Line(const LinWakeupRecord& record, uint64_t wall) {
    return Head(record.start, wall, LinChannelName(record.channel), "--", kFlagTexts[0]) +
           "wake-up signal";
}

std::string CandumpView::Head(uint64_t device, uint64_t wall, const std::string& channel,
                              const char* direction, const char* flags) {
    return fmt::format(" {}  {}  {} {}  ", Time(device, wall), channel, direction, flags);
}

std::string CandumpView::IdText(const std::string& id) const {
    return fmt::format("{:>{}}", id, wide_ ? 8 : 3);
}

std::string CandumpView::Time(uint64_t device, uint64_t wall) {
    if (time_ == ViewTime::Device) {
        return fmt::format("({}.{:09})", device / kSecond, device % kSecond);
    }
    const uint64_t microseconds = wall % kSecond / kMicrosecond;
    if (time_ == ViewTime::Absolute) {
        return fmt::format("({:010}.{:06})", wall / kSecond, microseconds);
    }
    if (time_ == ViewTime::Date) {
        return fmt::format("({:%Y-%m-%d %H:%M:%S}.{:06})",
                           fmt::localtime(static_cast<std::time_t>(wall / kSecond)), microseconds);
    }
    const uint64_t origin = origin_.value_or(device);
    // Frames and errors have clocks of their own: a line may be older than the one before it.
    const uint64_t since = device > origin ? device - origin : 0;
    if (!origin_ || time_ == ViewTime::Delta) {
        origin_ = device;
    }
    return fmt::format("({:03}.{:06})", since / kSecond, since % kSecond / kMicrosecond);
}

} // namespace vcihost
