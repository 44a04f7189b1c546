#include "vcihost/CanFrame.h"

#include "vcihost/Notation.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iterator>

#include <fmt/format.h>

namespace vcihost {

namespace {

constexpr uint8_t kDlcLengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

constexpr size_t kStandardDigits = 3;
constexpr size_t kExtendedDigits = 8;
constexpr uint32_t kMostStandardId = 0x7FF;
constexpr uint32_t kMostExtendedId = 0x1FFFFFFF;

// The flags digit of a CAN FD frame.
constexpr int kBrsFlag = 1;
constexpr int kEsiFlag = 2;
constexpr int kFdfFlag = 4; // what ## says already

// Reads one frame; its errors name the whole text.
class Parser {
  public:
    Parser(const char* kind, std::string_view text) : kind_(kind), text_(text), rest_(text) {}

    [[noreturn]] void Fail(const std::string& fault) const {
        throw NotationError(fmt::format("{} '{}': {}", kind_, text_, fault));
    }

    bool AtEnd() const { return rest_.empty(); }

    bool Take(std::string_view word) {
        if (!rest_.starts_with(word)) {
            return false;
        }
        rest_.remove_prefix(word.size());
        return true;
    }

    void TakeId(CanFrame& frame) {
        const size_t digits = std::min(rest_.find('#'), rest_.size());
        uint32_t id = 0;
        for (size_t i = 0; i < digits; ++i) {
            const int digit = HexDigit(rest_[i]);
            if (digit < 0 || digits > kExtendedDigits) {
                FailId();
            }
            id = id << 4U | static_cast<uint32_t>(digit);
        }
        if (digits != kStandardDigits && digits != kExtendedDigits) {
            FailId();
        }
        rest_.remove_prefix(digits);
        frame.id = id;
        frame.extended = digits == kExtendedDigits;
        if (id > (frame.extended ? kMostExtendedId : kMostStandardId)) {
            Fail(frame.extended ? "an extended identifier is at most 1FFFFFFF"
                                : "a standard identifier is at most 7FF; write eight digits for an "
                                  "extended one");
        }
    }

    int TakeDigit() {
        const int digit = AtEnd() ? -1 : HexDigit(rest_.front());
        if (digit >= 0) {
            rest_.remove_prefix(1);
        }
        return digit;
    }

    Bytes TakeData() {
        Bytes data;
        while (!AtEnd()) {
            if (!data.empty()) {
                Take(".");
            }
            const int high = TakeDigit();
            const int low = high < 0 ? -1 : TakeDigit();
            if (low < 0) {
                FailData(high >= 0);
            }
            data.push_back(static_cast<uint8_t>(high << 4 | low));
        }
        return data;
    }

    // What cannot be read any more.
    [[noreturn]] void FailData(bool half) const {
        const size_t at = text_.size() - rest_.size() + 1;
        if (AtEnd() || rest_.front() == '.') {
            Fail(half ? fmt::format("the byte before character {} has only one digit", at)
                      : fmt::format("a byte is missing at character {}", at));
        }
        if (rest_.front() == '_') {
            Fail("a DLC code behind '_' cannot be asked for: the device takes the length of the "
                 "data for it; leave '_' and what follows");
        }
        const char found = rest_.front();
        Fail(std::isprint(static_cast<unsigned char>(found)) != 0
                 ? fmt::format("character {} ('{}') is not a hex digit", at, found)
                 : fmt::format("character {} is not a hex digit", at));
    }

  private:
    static int HexDigit(char c) {
        int digit = -1;
        std::from_chars(&c, &c + 1, digit, 16);
        return digit;
    }

    [[noreturn]] void FailId() const {
        Fail("an identifier has three hex digits, or eight when it is extended");
    }

    const char* kind_;
    std::string_view text_;
    std::string_view rest_;
};

void TakeRemote(Parser& parser, CanFrame& frame) {
    frame.remote = true;
    if (parser.AtEnd()) {
        return;
    }
    const int requested = parser.TakeDigit();
    if (requested < 0) {
        parser.FailData(false);
    }
    if (requested > static_cast<int>(kMostClassicBytes)) {
        parser.Fail("a remote frame asks for at most 8 bytes");
    }
    frame.requested = static_cast<uint8_t>(requested);
    if (!parser.AtEnd()) {
        parser.FailData(false);
    }
}

// Whether a frame is to be sent, or a log tells of it.
enum class Purpose {
    Send,
    Log
};

void TakeFd(Parser& parser, CanFrame& frame, Purpose purpose) {
    frame.fd = true;
    const int flags = parser.TakeDigit();
    if (flags < 0) {
        parser.Fail("behind ## stands the flags digit: 0, or 1 for the switch of the bit rate");
    }
    if (purpose == Purpose::Send && (flags & kEsiFlag) != 0) {
        parser.Fail("the error state indicator (flag 2) cannot be sent: the device's requests have "
                    "no place for it");
    }
    if ((flags & ~(kBrsFlag | kEsiFlag | kFdfFlag)) != 0) {
        parser.Fail(
            fmt::format("flags {:X} are not known; 0, or 1 for the switch of the bit rate", flags));
    }
    frame.brs = (flags & kBrsFlag) != 0;
    frame.data = parser.TakeData();
    const size_t length = frame.data.size();
    if (length > kMostFdBytes) {
        parser.Fail(fmt::format("{} bytes; a CAN FD frame has at most 64", length));
    }
    if (!DlcOfLength(length)) {
        const auto* const next = std::lower_bound(std::begin(kDlcLengths), std::end(kDlcLengths),
                                                  static_cast<uint8_t>(length));
        parser.Fail(fmt::format("{} bytes; no CAN FD frame has this length, the next are {} and {}",
                                length, *(next - 1), *next));
    }
}

CanFrame ParseFrame(std::string_view text, Purpose purpose) {
    Parser parser("frame", text);
    CanFrame frame;
    parser.TakeId(frame);
    if (parser.Take("##")) {
        TakeFd(parser, frame, purpose);
    } else if (parser.Take("#R") || parser.Take("#r")) {
        TakeRemote(parser, frame);
    } else if (parser.Take("#")) {
        frame.data = parser.TakeData();
        if (frame.data.size() > kMostClassicBytes) {
            parser.Fail(fmt::format("{} bytes; a classic frame has at most 8, a CAN FD frame (##) "
                                    "more",
                                    frame.data.size()));
        }
    } else {
        parser.Fail("no # behind the identifier; write 123#DEADBEEF, 123#R4 or 123##1AABB");
    }
    return frame;
}

std::string IdDigits(const CanFrame& frame) {
    return frame.extended ? fmt::format("{:08X}", frame.id) : fmt::format("{:03X}", frame.id);
}

} // namespace

uint8_t LengthOfDlc(uint8_t code) {
    return kDlcLengths[code & 0xFU];
}

std::optional<uint8_t> DlcOfLength(size_t length) {
    for (size_t code = 0; code < std::size(kDlcLengths); ++code) {
        if (kDlcLengths[code] == length) {
            return static_cast<uint8_t>(code);
        }
    }
    return std::nullopt;
}

CanFrame ParseCanFrame(std::string_view text) {
    return ParseFrame(text, Purpose::Send);
}

CanFrame ParseLoggedCanFrame(std::string_view text) {
    return ParseFrame(text, Purpose::Log);
}

std::string CanFrameText(const CanFrame& frame) {
    std::string text = IdDigits(frame);
    if (frame.remote) {
        return frame.requested == 0 ? text + "#R" : fmt::format("{}#R{}", text, frame.requested);
    }
    text += frame.fd ? fmt::format("##{}", frame.brs ? 1 : 0) : "#";
    for (const uint8_t byte : frame.data) {
        text += fmt::format("{:02X}", byte);
    }
    return text;
}

CanFrame ParseCanId(std::string_view text) {
    Parser parser("identifier", text);
    CanFrame frame;
    parser.TakeId(frame);
    if (parser.Take("##")) {
        frame.fd = true;
    } else if (parser.Take("#R") || parser.Take("#r")) {
        frame.remote = true;
    }
    if (!parser.AtEnd()) {
        parser.Fail("behind an identifier may stand #R for a remote and ## for a CAN FD frame, "
                    "nothing else");
    }
    return frame;
}

std::string CanIdText(const CanFrame& frame) {
    const char* const kind = frame.remote ? "#R" : "";
    return IdDigits(frame) + (frame.fd ? "##" : kind);
}

} // namespace vcihost
