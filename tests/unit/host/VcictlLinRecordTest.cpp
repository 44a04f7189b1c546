#include "host/FakeDevice.h"
#include "host/Tool.h"
#include "vcihost/Frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using vcihost::Bytes;
using vcihost::ParseHex;
using vcihost::ToHex;

namespace {

using Strings = std::vector<std::string>;

Bytes Frame(const std::string& channel, const std::string& rest) {
    Bytes service = ParseHex("09 1a" + channel + "50 d202964900000000 92c9c34900000000" + rest);
    service.resize(103);
    return vcihost::BuildFrame(service);
}

// lin0 has sent 10#1122 at 1.234567890 s; lin1 got no response; a wake-up on lin1.
const Bytes kSent = Frame("00", "02 0000 00 02 1122000000000000 7c 7c 01000000");
const Bytes kNoResponse = Frame("01", "03 0100 01 02 0000000000000000 00 00");
const Bytes kWakeup = vcihost::BuildFrame(ParseHex("09 1b 01 d302964900000000 62d3994900000000"));
const Bytes kCan = vcihost::BuildFrame(ParseHex("09 19 08 23010000 d202964900000000 84 deadbeef"));
// A record of a channel that is not there.
const Bytes kStrange = Frame("02", "02 0000 00 02 1122000000000000 7c 7c");

// Answers everything with the time; behind the answer that switches lin1 on come the records.
FakeDevice::Answers Recording(std::vector<Bytes> records) {
    return [records = std::move(records)](const Bytes& packet) {
        Bytes answer = ParseHex("00 0a000000 0000 d202964900000000 00000000 0000000000");
        answer[5] = packet.at(5);
        answer[6] = packet.at(6);
        std::vector<Bytes> answers{answer};
        if (ToHex(std::span(packet).subspan(5, 5)) == "090c010101") {
            answers.insert(answers.end(), records.begin(), records.end());
        }
        return answers;
    };
}

// The requests that switched records.
Strings Switches(const FakeDevice& device) {
    Strings switches;
    for (const Bytes& packet : device.Received()) {
        if (packet.at(5) == 9) {
            switches.push_back(ToHex(std::span(packet).subspan(5, packet.at(1))));
        }
    }
    return switches;
}

ToolResult RunRecord(const FakeDevice& device, Strings words) {
    words.insert(words.begin(), "record");
    words.insert(words.end(), {"--device", device.path()});
    return RunTool(words);
}

TEST(VcictlLinRecord, ShowsLinBesideCan) {
    FakeDevice device(Recording({kCan, kSent, kNoResponse, kWakeup, kStrange}));
    const auto result = RunRecord(device, {"lin0", "lin1", "can0", "-T", "100"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, " (1.234567890)  can0  RX - -  123   [4]  DE AD BE EF\n"
                          " (1.234567890)  lin0  TX - -   10   [2]  11 22  checksum 7C enhanced\n"
                          " (1.234567890)  lin1  RX - -   10   [0]  no response\n"
                          " (1.234567891)  lin1  -- - -  wake-up signal\n"
                          " lost: 1\n");
    EXPECT_THAT(result.err, StartsWith("4 records (2 frames, 1 error, 1 wake-up) in "));
    EXPECT_THAT(result.err, HasSubstr(", 1 message that cannot be read, lost: not measured\n"));
    EXPECT_EQ(Switches(device), (Strings{"09160801", "090c010001", "090c010101", "09160800",
                                         "090c010000", "090c010100"}));
}

TEST(VcictlLinRecord, ChannelsThatAreNotAskedForAreLeftOut) {
    FakeDevice device(Recording({kSent, kNoResponse, kCan}));
    const auto result = RunRecord(device, {"lin1", "-T", "100"});
    EXPECT_EQ(result.out, " (1.234567890)  lin1  RX - -   10   [0]  no response\n");
    EXPECT_EQ(Switches(device), (Strings{"090c010101", "090c010100"}));
}

TEST(VcictlLinRecord, JsonIsOneObjectARecord) {
    FakeDevice device(Recording({kSent, kNoResponse, kWakeup}));
    const auto result = RunRecord(device, {"lin0", "lin1", "--json", "-n", "3"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.out,
        MatchesRegex(
            "\\{\"type\":\"lin_frame\",\"device_ns\":1234567890,\"wall_ns\":[0-9]{19},"
            "\"channel\":\"lin0\",\"direction\":\"tx\",\"end_ns\":1237567890,\"id\":16,\"pid\":80,"
            "\"length\":2,\"data\":\"1122\",\"checksum\":124,\"calculated\":124,"
            "\"checksum_type\":\"enhanced\",\"error_code\":0,\"error\":\"\",\"timing\":\\{"
            "\"header_length\":1,\"break_field_length\":0,.*\"response_baudrate\":0\\}\\}\n"
            "\\{\"type\":\"lin_frame\",.*\"data\":\"\",.*\"error_code\":1,\"error\":\"no response\""
            ".*\n"
            "\\{\"type\":\"lin_wakeup\",\"device_ns\":1234567891,\"wall_ns\":[0-9]{19},"
            "\"channel\":\"lin1\",\"end_ns\":1234817890\\}\n"));
}

TEST(VcictlLinRecord, WritesACaptureFile) {
    FakeDevice device(Recording({kSent, kWakeup}));
    const TempDir dir;
    const auto result = RunRecord(device, {"lin0", "lin1", "-o", dir / "a.pcapng", "-n", "2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(dir.Read("a.pcapng"), StartsWith("\n\r\r\n"));
    EXPECT_THAT(dir.Read("a.pcapng"),
                HasSubstr(std::string("\x01\0\0\0\x22\x50\x7c\0\x11\x22", 10)));
    EXPECT_THAT(dir.Read("a.pcapng"),
                HasSubstr(std::string("\x01\0\0\0\x0c\0\0\0\xb0\xb0\0\x04", 12)));
}

TEST(VcictlLinRecord, TheTextLogIsRefused) {
    FakeDevice device(Recording({}));
    const TempDir dir;
    const std::pair<Strings, std::string> lines[] = {
        {{"lin0", "-L"},
         "vcictl: -L: the text log of candump cannot hold LIN frames; leave it "
         "out, or record to a file that ends with .pcapng\n"},
        {{"can0", "lin0", "-o", dir / "a.log"},
         "vcictl: '" + dir / "a.log" +
             "': the text log of candump cannot hold the frames of "
             "lin0; record to a file that ends with .pcapng\n"},
        {{"lin0", "-l"}, "the text log of candump cannot hold the frames of lin0"},
    };
    for (const auto& [words, message] : lines) {
        const auto result = RunRecord(device, words);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_THAT(result.err, HasSubstr(message));
    }
    EXPECT_EQ(Switches(device), Strings{});
    EXPECT_FALSE(std::filesystem::exists(dir / "a.log"));
}

TEST(VcictlLinRecord, AClosedChannelIsRefusedWithWhatToDo) {
    FakeDevice device([](const Bytes& packet) {
        if (packet.at(5) != 9 || packet.at(6) != 12) {
            return Recording({})(packet);
        }
        Bytes refusal = ParseHex("00 05000000 6802 0c 09 0c 00000000 0000");
        std::copy_n(packet.begin() + 10, 4, refusal.begin() + 10);
        return std::vector<Bytes>{refusal};
    });
    const auto result = RunRecord(device, {"can0", "lin0"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("lin0 is closed: vcictl lin open lin0\n"));
    EXPECT_EQ(Switches(device), (Strings{"09160801", "090c010001", "09160800"}));
}

} // namespace
