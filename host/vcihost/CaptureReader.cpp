#include "vcihost/BufferedFile.h"
#include "vcihost/Notation.h"
#include "vcihost/PcapngWriter.h"
#include "vcihost/SocketCan.h"
#include "vcihost/TraceReader.h"

#include <array>
#include <bit>
#include <limits>

#include <fmt/format.h>

// Capture files of the pcapng format, of either byte order.
namespace vcihost {

namespace {

// Block types.
constexpr uint32_t kSectionHeader = 0x0A0D0D0A; // the same in either byte order
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kObsoletePacket = 2;
constexpr uint32_t kSimplePacket = 3;
constexpr uint32_t kEnhancedPacket = 6;

// Options of an interface.
constexpr uint16_t kEndOfOptions = 0;
constexpr uint16_t kInterfaceName = 2;
constexpr uint16_t kInterfaceResolution = 9;
constexpr uint16_t kInterfaceTimeOffset = 14;

constexpr uint32_t kByteOrder = 0x1A2B3C4D;
constexpr uint16_t kMajor = 1;

constexpr size_t kBlockHead = 8;                       // type and length
constexpr size_t kShortestBlock = kBlockHead + 4;      // the length stands at the end as well
constexpr uint32_t kLongestBlock = 16UL * 1024 * 1024; // no writer of CAN traffic comes near
constexpr size_t kAlignment = 4;

constexpr uint8_t kMicroseconds = 6; // where the interface says nothing
constexpr uint8_t kNanoseconds = 9;
constexpr uint8_t kPowerOfTwo = 0x80;
constexpr uint64_t kSecond = 1'000'000'000;
constexpr auto kMostTime = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());

// A SocketCAN packet.
constexpr size_t kPacketHead = 8;
constexpr uint8_t kBrs = 0x01;
constexpr uint8_t kFdf = 0x04;

// Classic captures, which are another format.
constexpr uint32_t kClassicMagics[] = {0xA1B2C3D4, 0xD4C3B2A1, 0xA1B23C4D, 0x4D3CB2A1};

struct Interface {
    bool can = false;
    size_t index = 0; // in Trace::interfaces; of a CAN interface
    uint8_t resolution = kMicroseconds;
    int64_t offset = 0; // seconds
};

// Numbers of one byte order from the front of a block; like WireReader, which knows one order.
class Fields {
  public:
    Fields(std::span<const uint8_t> bytes, bool big) : rest_(bytes), big_(big) {}

    uint16_t U16() { return static_cast<uint16_t>(Take(2)); }
    uint32_t U32() { return static_cast<uint32_t>(Take(4)); }
    uint64_t U64() { return Take(8); }

    std::span<const uint8_t> Bytes(size_t count) {
        if (count > rest_.size()) {
            throw NotationError("a block is shorter than what it tells of");
        }
        const auto taken = rest_.first(count);
        rest_ = rest_.subspan(count);
        return taken;
    }

    // With what fills it up to the next multiple of 4.
    std::span<const uint8_t> Padded(size_t count) {
        const auto bytes = Bytes(count);
        Bytes(std::min(rest_.size(), (kAlignment - count % kAlignment) % kAlignment));
        return bytes;
    }

    size_t Left() const { return rest_.size(); }

  private:
    uint64_t Take(size_t size) {
        const auto bytes = Bytes(size);
        uint64_t value = 0;
        for (size_t i = 0; i < size; ++i) {
            value = value << 8U | bytes[big_ ? i : size - 1 - i];
        }
        return value;
    }

    std::span<const uint8_t> rest_;
    bool big_;
};

[[noreturn]] void FailTime() {
    throw NotationError("its time is beyond what can be told in nanoseconds");
}

uint64_t PowerOfTen(unsigned exponent) {
    uint64_t power = 1;
    while (exponent-- > 0) {
        power *= 10;
    }
    return power;
}

// A packet's time, in units of the interface, in nanoseconds.
uint64_t Nanoseconds(const Interface& interface, uint64_t time) {
    uint64_t result = 0;
    if ((interface.resolution & kPowerOfTwo) != 0) {
        constexpr unsigned kBits = 32; // of a fraction that does not overflow
        unsigned exponent = interface.resolution & ~unsigned{kPowerOfTwo};
        const uint64_t seconds = time >> exponent;
        uint64_t fraction = time & ((uint64_t{1} << exponent) - 1);
        if (exponent > kBits) {
            fraction >>= exponent - kBits;
            exponent = kBits;
        }
        if (seconds >= kMostTime / kSecond) {
            FailTime();
        }
        result = seconds * kSecond + (fraction * kSecond >> exponent);
    } else if (interface.resolution > kNanoseconds) {
        result = time / PowerOfTen(interface.resolution - unsigned{kNanoseconds});
    } else {
        const uint64_t unit = PowerOfTen(unsigned{kNanoseconds} - interface.resolution);
        if (time > kMostTime / unit) {
            FailTime();
        }
        result = time * unit;
    }
    constexpr auto kMostOffset = static_cast<int64_t>(kMostTime / kSecond);
    if (result > kMostTime || interface.offset > kMostOffset || interface.offset < -kMostOffset) {
        FailTime();
    }
    const int64_t shift = interface.offset * static_cast<int64_t>(kSecond);
    if (shift < 0 ? result < static_cast<uint64_t>(-shift)
                  : result > kMostTime - static_cast<uint64_t>(shift)) {
        FailTime();
    }
    return result + static_cast<uint64_t>(shift);
}

class CaptureReader {
  public:
    CaptureReader(std::istream& input, Trace& trace) : input_(input), trace_(trace) {
        trace_.unit = "packet";
    }

    void Read() {
        while (ReadBlock()) {
            Fields fields(std::span<const uint8_t>(block_).subspan(kBlockHead,
                                                                   block_.size() - kShortestBlock),
                          big_);
            switch (type_) {
            case kSectionHeader:
                BeginSection(fields);
                break;
            case kInterfaceDescription:
                AddInterface(fields);
                break;
            case kEnhancedPacket:
                ++packets_;
                TakePacket(fields);
                break;
            case kSimplePacket:
            case kObsoletePacket:
                ++packets_;
                ++trace_.others; // the one has no time, the other has not been written for long
                break;
            default: // of no meaning for a replay
                break;
            }
        }
    }

    uint64_t packets() const { return packets_; }

  private:
    // False at the end of the file.
    bool ReadBlock() {
        std::array<uint8_t, kShortestBlock> head{};
        const size_t got = ReadBytes(head);
        if (got == 0) {
            return false;
        }
        if (got < head.size()) {
            throw NotationError("the file ends within a block");
        }
        if (Fields(head, false).U32() == kSectionHeader) {
            TakeByteOrder(std::span(head).last<sizeof(kByteOrder)>());
        }
        Fields fields(head, big_);
        type_ = fields.U32();
        const uint32_t length = fields.U32();
        if (length < kShortestBlock || length > kLongestBlock || length % kAlignment != 0) {
            throw NotationError(fmt::format("a block of {} bytes cannot be", length));
        }
        block_.assign(head.begin(), head.end());
        block_.resize(length);
        const auto rest = std::span(block_).subspan(head.size());
        if (ReadBytes(rest) < rest.size()) {
            throw NotationError("the file ends within a block");
        }
        if (Fields(std::span<const uint8_t>(block_).last(sizeof(length)), big_).U32() != length) {
            throw NotationError("a block's two lengths differ");
        }
        return true;
    }

    size_t ReadBytes(std::span<uint8_t> bytes) {
        input_.read(reinterpret_cast<char*>(bytes.data()),
                    static_cast<std::streamsize>(bytes.size()));
        return static_cast<size_t>(input_.gcount());
    }

    void TakeByteOrder(std::span<const uint8_t> magic) {
        big_ = Fields(magic, true).U32() == kByteOrder;
        if (!big_ && Fields(magic, false).U32() != kByteOrder) {
            throw NotationError("a section of no known byte order");
        }
    }

    void BeginSection(Fields& fields) {
        fields.U32(); // byte order
        const uint16_t major = fields.U16();
        if (major != kMajor) {
            throw NotationError(fmt::format("version {} of the format is not known", major));
        }
        interfaces_.clear();
    }

    void AddInterface(Fields& fields) {
        Interface interface;
        interface.can = fields.U16() == static_cast<uint16_t>(LinkType::SocketCan);
        std::string name = fmt::format("interface{}", interfaces_.size());
        fields.U16(); // reserved
        fields.U32(); // longest packet
        while (fields.Left() > 0) {
            const uint16_t code = fields.U16();
            const auto value = fields.Padded(fields.U16());
            if (code == kEndOfOptions) {
                break;
            }
            if (code == kInterfaceName) {
                name.assign(value.begin(), value.end());
            } else if (code == kInterfaceResolution && value.size() == 1) {
                interface.resolution = value[0];
            } else if (code == kInterfaceTimeOffset && value.size() == sizeof(interface.offset)) {
                interface.offset = std::bit_cast<int64_t>(Fields(value, big_).U64());
            }
        }
        constexpr uint8_t kFinestDecimal = 19; // the finest that 64 bits can count to a second
        constexpr uint8_t kFinestBinary = kPowerOfTwo | 63;
        if (interface.resolution > kFinestBinary ||
            ((interface.resolution & kPowerOfTwo) == 0 && interface.resolution > kFinestDecimal)) {
            throw NotationError(fmt::format("interface '{}' has times of an unknown resolution, {}",
                                            name, interface.resolution));
        }
        if (interface.can) {
            interface.index = trace_.Interface(name);
        }
        interfaces_.push_back(interface);
    }

    void TakePacket(Fields& fields) {
        const uint32_t number = fields.U32();
        const uint64_t upper = fields.U32();
        const uint64_t time = upper << 32U | fields.U32();
        const uint32_t captured = fields.U32();
        fields.U32(); // length as it was
        const auto data = fields.Padded(captured);
        if (number >= interfaces_.size()) {
            throw NotationError(fmt::format("interface {} was not described", number));
        }
        if (!interfaces_[number].can) {
            ++trace_.others;
            return;
        }
        TakeFrame(interfaces_[number], time, data);
    }

    void TakeFrame(const Interface& interface, uint64_t time, std::span<const uint8_t> data) {
        if (data.size() < kPacketHead) {
            throw NotationError(fmt::format("{} bytes are no CAN frame", data.size()));
        }
        const uint32_t id = Fields(data, true).U32(); // in either section
        const size_t length = data[4];
        const uint8_t flags = data[5];
        if ((id & kSocketCanError) != 0) {
            ++trace_.errors;
            return;
        }
        TraceFrame entry;
        entry.number = packets_;
        entry.interface = interface.index;
        entry.time = Nanoseconds(interface, time);
        CanFrame& frame = entry.frame;
        frame.extended = (id & kSocketCanExtended) != 0;
        frame.id = id & (frame.extended ? 0x1FFFFFFFU : 0x7FFU);
        // Not every writer marks CAN FD frames; a length above 8 says it as well.
        frame.fd = (flags & kFdf) != 0 || length > kMostClassicBytes;
        if (frame.fd && !DlcOfLength(length)) {
            throw NotationError(fmt::format("no CAN frame has {} bytes", length));
        }
        frame.remote = !frame.fd && (id & kSocketCanRemote) != 0;
        frame.brs = frame.fd && (flags & kBrs) != 0;
        if (frame.remote) {
            frame.requested = static_cast<uint8_t>(length);
        } else if (data.size() < kPacketHead + length) {
            throw NotationError(fmt::format("only {} of the frame's {} bytes were captured",
                                            data.size() - kPacketHead, length));
        } else {
            const auto bytes = data.subspan(kPacketHead, length);
            frame.data.assign(bytes.begin(), bytes.end());
        }
        trace_.frames.push_back(std::move(entry));
    }

    std::istream& input_;
    Trace& trace_;
    bool big_ = false;
    uint32_t type_ = 0;
    Bytes block_;
    std::vector<Interface> interfaces_; // of the section
    uint64_t packets_ = 0;
};

} // namespace

bool IsCapture(std::istream& input, const std::string& path) {
    std::array<uint8_t, sizeof(kSectionHeader)> bytes{};
    input.read(reinterpret_cast<char*>(bytes.data()), bytes.size());
    const bool whole = input.gcount() == static_cast<std::streamsize>(bytes.size());
    input.clear();
    for (size_t i = 0; whole && i < bytes.size(); ++i) {
        input.unget(); // a pipe cannot be read from its start again
    }
    if (!whole) {
        input.seekg(0);
    } else if (!input) {
        throw FileError(path +
                        ": comes in pieces of less than four bytes; copy it to a file first");
    }
    const uint32_t magic = Fields(bytes, false).U32();
    for (const uint32_t classic : kClassicMagics) {
        if (whole && magic == classic) {
            throw NotationError(path +
                                ": a capture of the old pcap format; editcap -F pcapng makes "
                                "one of the new");
        }
    }
    return whole && magic == kSectionHeader;
}

void ReadCapture(std::istream& input, Trace& trace) {
    CaptureReader reader(input, trace);
    try {
        reader.Read();
    } catch (const NotationError& error) {
        throw NotationError(fmt::format("{}, packet {}: {}", trace.path,
                                        std::max<uint64_t>(reader.packets(), 1), error.what()));
    }
}

} // namespace vcihost
