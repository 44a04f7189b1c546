#include "vcihost/Transcript.h"

#include "vcihost/Describe.h"
#include "vcihost/Frame.h"

#include <algorithm>
#include <sstream>

#include <fmt/format.h>

namespace vcihost {

namespace {

// Columns: 8 characters for who, 30 for the bytes (a sync drop fills them), the rest for words.
constexpr size_t kBytesColumn = 30;

// gid and sid apart, the payload in one piece; what does not fit is cut and its length told.
std::string ShowService(std::span<const uint8_t> service) {
    const auto ids = service.first(std::min(service.size(), kShortestService));
    std::string text = ToSpacedHex(ids) + " " + ToHex(service.subspan(ids.size()));
    if (text.size() > kBytesColumn) {
        const std::string length = fmt::format(".. {} bytes", service.size());
        const size_t keep = (kBytesColumn - length.size()) / 2 * 2; // whole bytes
        text = text.substr(0, keep) + length;
    }
    return text;
}

std::string ShowBytes(std::span<const uint8_t> bytes) {
    std::string text = ToHex(bytes);
    if (text.size() > kBytesColumn) {
        const std::string length = fmt::format(".. {} bytes", bytes.size());
        const size_t keep = (kBytesColumn - length.size()) / 2 * 2;
        text = text.substr(0, keep) + length;
    }
    return text;
}

} // namespace

void Transcript::HostFrame(std::span<const uint8_t> frame) {
    const auto request = ParseRequest(frame);
    const auto around = kServiceOffset + kHandleSize;
    if (!request || frame.size() < around) {
        HostBytes(frame);
        return;
    }
    const auto service = frame.subspan(kServiceOffset, kShortestService + request->payload.size());
    Row("host   >", ShowService(service), DescribeRequest(frame).text);
}

void Transcript::HostBytes(std::span<const uint8_t> bytes) {
    Row("host  >>", ShowBytes(bytes), DescribeRequest(bytes).text);
}

void Transcript::Device(std::span<const uint8_t> message) {
    const auto parsed = ParseMessage(message);
    Row("device <", parsed ? ShowService(parsed->service) : ShowBytes(message),
        DescribeMessage(message).text);
}

void Transcript::Note(std::string_view who, std::string_view what, std::string_view meaning) {
    Row(who, what, meaning);
}

void Transcript::Quote(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        Row("", line, "");
    }
}

void Transcript::Say(const std::string& text) {
    if (sink_) {
        if (!empty_) {
            sink_("");
        }
        sink_(text);
        empty_ = false;
    }
}

void Transcript::Row(std::string_view who, std::string_view bytes, std::string_view meaning) {
    if (!sink_) {
        return;
    }
    std::string line = fmt::format("{:<8}  {:<{}}  {}", who, bytes, kBytesColumn, meaning);
    line.erase(line.find_last_not_of(' ') + 1);
    sink_(line);
    empty_ = false;
}

} // namespace vcihost
