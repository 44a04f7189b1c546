#include "vcihost/PcapngWriter.h"

#include "utils/WireFormat.h"

namespace vcihost {

namespace {

// Block types.
constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kInterfaceStatistics = 5;
constexpr uint32_t kEnhancedPacket = 6;

// Option codes: those of every block, then by block.
constexpr uint16_t kEndOfOptions = 0;
constexpr uint16_t kComment = 1;
constexpr uint16_t kSectionHardware = 2;
constexpr uint16_t kSectionOs = 3;
constexpr uint16_t kSectionApplication = 4;
constexpr uint16_t kInterfaceName = 2;
constexpr uint16_t kInterfaceDescriptionText = 3;
constexpr uint16_t kInterfaceResolution = 9;
constexpr uint16_t kPacketFlags = 2;
constexpr uint16_t kPacketDropCount = 4;
constexpr uint16_t kStatisticsStart = 2;
constexpr uint16_t kStatisticsEnd = 3;
constexpr uint16_t kStatisticsReceived = 4;
constexpr uint16_t kStatisticsDropped = 5;
constexpr uint16_t kStatisticsAccepted = 6;

constexpr uint32_t kByteOrder = 0x1A2B3C4D; // written little-endian, like all that follows it
constexpr uint16_t kMajor = 1;
constexpr uint16_t kMinor = 0;
constexpr uint64_t kUnknownSectionLength = ~uint64_t{0};
constexpr uint8_t kNanoseconds = 9; // negative power of ten
constexpr uint32_t kNoSnapLimit = 0;

constexpr size_t kAlignment = 4;
constexpr size_t kLengthOffset = 4;     // of the block's length, behind its type
constexpr size_t kLengthSize = 4;       // it stands at the block's end as well
constexpr size_t kLongestText = 0xFFFC; // an option's length has 16 bits
constexpr size_t kUsualBlock = 256;

} // namespace

PcapngWriter::PcapngWriter(BufferedFile& file, const Section& section) : file_(file) {
    block_.reserve(kUsualBlock);
    Begin(kSectionHeader);
    U32(kByteOrder);
    U16(kMajor);
    U16(kMinor);
    U64(kUnknownSectionLength);
    Text(kSectionHardware, section.hardware);
    Text(kSectionOs, section.os);
    Text(kSectionApplication, section.application);
    Text(kComment, section.comment);
    EndOptions();
    Finish();
}

uint32_t PcapngWriter::AddInterface(const Interface& interface) {
    Begin(kInterfaceDescription);
    U16(static_cast<uint16_t>(interface.linkType));
    U16(0); // reserved
    U32(kNoSnapLimit);
    Text(kInterfaceName, interface.name);
    Text(kInterfaceDescriptionText, interface.description);
    OptionHead(kInterfaceResolution, sizeof(kNanoseconds));
    Padded(std::span(&kNanoseconds, 1));
    EndOptions();
    Finish();
    return interfaces_++;
}

void PcapngWriter::AddPacket(const Packet& packet) {
    const auto length = static_cast<uint32_t>(packet.data.size());
    Begin(kEnhancedPacket);
    U32(packet.interface);
    Time(packet.time);
    U32(length); // as captured
    U32(length); // as it was
    Padded(packet.data);
    Text(kComment, packet.comment);
    OptionHead(kPacketFlags, sizeof(uint32_t));
    U32(static_cast<uint32_t>(packet.direction));
    if (packet.dropped > 0) {
        Counter(kPacketDropCount, packet.dropped);
    }
    EndOptions();
    Finish();
}

void PcapngWriter::AddStatistics(const Statistics& statistics) {
    Begin(kInterfaceStatistics);
    U32(statistics.interface);
    Time(statistics.time);
    TimeOption(kStatisticsStart, statistics.start);
    TimeOption(kStatisticsEnd, statistics.end);
    Counter(kStatisticsReceived, statistics.received);
    if (statistics.dropped > 0) {
        Counter(kStatisticsDropped, statistics.dropped);
    }
    Counter(kStatisticsAccepted, statistics.accepted);
    EndOptions();
    Finish();
}

void PcapngWriter::Begin(uint32_t type) {
    block_.clear();
    U32(type);
    U32(0); // the length, set by Finish()
}

void PcapngWriter::U16(uint16_t value) {
    block_.resize(block_.size() + sizeof(value));
    WireWriter(std::span(block_).last<sizeof(value)>()).U16(value);
}

void PcapngWriter::U32(uint32_t value) {
    block_.resize(block_.size() + sizeof(value));
    WireWriter(std::span(block_).last<sizeof(value)>()).U32(value);
}

void PcapngWriter::U64(uint64_t value) {
    block_.resize(block_.size() + sizeof(value));
    WireWriter(std::span(block_).last<sizeof(value)>()).U64(value);
}

// In two halves, the upper one first, whatever the byte order.
void PcapngWriter::Time(uint64_t time) {
    U32(static_cast<uint32_t>(time >> 32U));
    U32(static_cast<uint32_t>(time));
}

void PcapngWriter::Padded(std::span<const uint8_t> bytes) {
    block_.insert(block_.end(), bytes.begin(), bytes.end());
    block_.resize((block_.size() + kAlignment - 1) / kAlignment * kAlignment);
}

void PcapngWriter::OptionHead(uint16_t code, uint16_t length) {
    U16(code);
    U16(length);
}

void PcapngWriter::Text(uint16_t code, std::string_view text) {
    if (text.empty()) {
        return;
    }
    text = text.substr(0, kLongestText);
    OptionHead(code, static_cast<uint16_t>(text.size()));
    Padded(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void PcapngWriter::Counter(uint16_t code, uint64_t value) {
    OptionHead(code, sizeof(value));
    U64(value);
}

void PcapngWriter::TimeOption(uint16_t code, uint64_t time) {
    OptionHead(code, sizeof(time));
    Time(time);
}

void PcapngWriter::EndOptions() {
    OptionHead(kEndOfOptions, 0);
}

void PcapngWriter::Finish() {
    const auto length = static_cast<uint32_t>(block_.size() + kLengthSize);
    U32(length);
    WireWriter(std::span(block_).subspan<kLengthOffset, kLengthSize>()).U32(length);
    file_.Append(block_);
}

} // namespace vcihost
