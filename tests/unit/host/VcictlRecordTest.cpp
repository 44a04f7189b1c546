#include "host/FakeDevice.h"
#include "host/Tool.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>

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

// Records: can0 123#DEADBEEF at 1.234567890 s, can1 00000124##1AA at 1.234567900 s, both received;
// an error of can0, then a damaged record.
const char kFrame[] = "00 14000000 0919 08 23010000 d202964900000000 84 deadbeef 00000000 000000";
const char kFdFrame[] = "00 11000000 0919 09 24010080 dc02964900000000 e1 aa 00000000 0000";
const char kError[] =
    "00 15000000 6806 e602964900000000 08 03 0c00 05 23010000 02 aa 00000000 0000";
const char kDamaged[] = "00 03000000 0919 08 00000000 0000 0000";

// The answer to a request: its gid and sid, and the time.
Bytes Answer(const Bytes& packet) {
    Bytes answer = ParseHex("00 0a000000 0000 d202964900000000 00000000 0000000000");
    answer[5] = packet.at(5);
    answer[6] = packet.at(6);
    return answer;
}

bool IsSwitch(const Bytes& packet) {
    return packet.at(5) == 9 && packet.at(6) == 22;
}

// Answers everything; behind the answer that switches `last` on come the records.
FakeDevice::Answers Recording(Strings records, uint8_t last) {
    return [records = std::move(records), last](const Bytes& packet) {
        std::vector<Bytes> answers{Answer(packet)};
        if (IsSwitch(packet) && packet.at(7) == last && packet.at(8) == 1) {
            for (const std::string& record : records) {
                answers.push_back(ParseHex(record));
            }
        }
        return answers;
    };
}

// The switch requests that the device got: channel code and state.
Strings Switches(const FakeDevice& device) {
    Strings switches;
    for (const Bytes& packet : device.Received()) {
        if (IsSwitch(packet)) {
            switches.push_back(ToHex(std::span(packet).subspan(7, 2)));
        }
    }
    return switches;
}

Strings Words(const FakeDevice& device, Strings words) {
    words.insert(words.begin(), "record");
    words.insert(words.end(), {"--device", device.path()});
    return words;
}

ToolResult RunRecord(const FakeDevice& device, const Strings& words,
                     const ToolOptions& options = {}) {
    return RunTool(Words(device, words), options);
}

constexpr char kSummary[] = " in [0-9]+\\.[0-9] s, [0-9]+/s";

TEST(VcictlRecord, ShowsRecordsAndSwitchesOff) {
    FakeDevice device(Recording({kFrame, kFdFrame, kError}, 9));
    const auto result = RunRecord(device, {"can0", "can1", "-n", "3", "-x", "-e"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              " (1.234567890)  can0  RX - -  123   [4]  DE AD BE EF\n"
              " (1.234567900)  can1  RX B -  00000124  [01]  AA\n"
              " (1.234567910)  can0  TX - -  error code 3 at bit 12, position 5, in 123 [1] AA\n");
    EXPECT_THAT(result.err, MatchesRegex("3 records \\(2 frames, 1 error\\)" +
                                         std::string(kSummary) + ", lost: not measured\n"));
    EXPECT_EQ(Switches(device), (Strings{"0801", "0901", "0800", "0900"}));
}

TEST(VcictlRecord, WithoutChannelsItRecordsAll) {
    FakeDevice device(Recording({kFrame}, 13));
    const auto result = RunRecord(device, {"-n", "1"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Switches(device), (Strings{"0801", "0901", "0a01", "0b01", "0c01", "0d01", "0800",
                                         "0900", "0a00", "0b00", "0c00", "0d00"}));
}

TEST(VcictlRecord, OldRecordsAndThoseOfOtherChannelsAreLeftOut) {
    FakeDevice device(Recording({kFdFrame, kFrame}, 8), {ParseHex(kFrame), ParseHex(kFrame)});
    const auto result = RunRecord(device, {"can0", "-T", "100"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, " (1.234567890)  can0  RX - -  123   [4]  DE AD BE EF\n");
}

TEST(VcictlRecord, RecordsBetweenTwoAnswersAreKept) {
    FakeDevice device(Recording({kFrame}, 8));
    const auto result = RunRecord(device, {"can0", "can1", "-T", "100"});
    EXPECT_EQ(result.out, " (1.234567890)  can0  RX - -  123   [4]  DE AD BE EF\n");
}

TEST(VcictlRecord, FiltersHoldBack) {
    FakeDevice device(Recording({kFrame, kFdFrame, kError}, 9));
    const auto result = RunRecord(device, {"can0,124:7FF,#0", "can1,124:7FF", "-T", "100"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, " (1.234567900)  can1  RX B -  00000124  [01]  AA\n");
    EXPECT_THAT(result.err,
                MatchesRegex("1 record \\(1 frame, 0 errors\\)" + std::string(kSummary) +
                             ", 2 filtered out, lost: not measured\n"));
}

TEST(VcictlRecord, ADamagedRecordIsCounted) {
    FakeDevice device(Recording({kFrame, kDamaged, "00 01", kError}, 8));
    const auto result = RunRecord(device, {"can0", "--json", "-T", "100"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr(", 2 messages that cannot be read, lost: not measured\n"));
    EXPECT_THAT(result.out, HasSubstr("}\n{\"type\":\"lost\",\"count\":1}\n"
                                      "{\"type\":\"lost\",\"count\":1}\n{"));
    EXPECT_THAT(RunRecord(device, {"can0", "-T", "100"}).out,
                HasSubstr("EF\n lost: 1\n lost: 1\n ("));
}

TEST(VcictlRecord, JsonIsOneObjectARecord) {
    FakeDevice device(Recording({kFdFrame, kError}, 8));
    const auto result = RunRecord(device, {"can1", "can0", "--json", "-n", "2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(
        result.out,
        MatchesRegex(
            "\\{\"type\":\"frame\",\"device_ns\":1234567900,\"wall_ns\":[0-9]{19},\"channel\":"
            "\"can1\",\"direction\":\"rx\",\"id\":292,\"extended\":true,\"remote\":false,\"fd\":"
            "true,\"brs\":true,\"esi\":false,\"dlc\":1,\"data\":\"aa\"\\}\n"
            "\\{\"type\":\"error\",\"device_ns\":1234567910,\"wall_ns\":[0-9]{19},\"channel\":"
            "\"can0\",\"direction\":\"tx\",\"code\":3,\"bit\":12,\"position\":5,\"id\":291,"
            "\"extended\":false,\"frame_type\":0,\"protocol\":0,\"esi\":false,\"dlc\":2,\"data\":"
            "\"aa\"\\}\n"));
}

TEST(VcictlRecord, LogOnStandardOutputHasWallClockTime) {
    FakeDevice device(Recording({kFrame, kFdFrame}, 9));
    const auto before = std::chrono::system_clock::now().time_since_epoch();
    const auto result = RunRecord(device, {"can0", "can1", "-L", "-n", "2"});
    const auto after = std::chrono::system_clock::now().time_since_epoch();
    EXPECT_THAT(result.out, MatchesRegex("\\([0-9]{10}\\.[0-9]{6}\\) can0 123#DEADBEEF\n"
                                         "\\([0-9]{10}\\.[0-9]{6}\\) can1 00000124##1AA\n"));
    // The device tells its time as that of the record: the record is from when it was asked.
    const std::chrono::duration<double> recorded(std::stod(result.out.substr(1, 17)));
    EXPECT_GT(recorded, before - std::chrono::seconds(1));
    EXPECT_LT(recorded, after + std::chrono::seconds(1));
}

TEST(VcictlRecord, WritesAFileAndNothingElse) {
    FakeDevice device(Recording({kFrame, kFdFrame, kError}, 9));
    const TempDir dir;
    const auto result = RunRecord(device, {"can0", "can1", "-o", dir / "a.log", "-n", "3"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(dir.Read("a.log"), MatchesRegex("\\([0-9.]+\\) can0 123#DEADBEEF\n"
                                                "\\([0-9.]+\\) can1 00000124##1AA\n"
                                                "\\([0-9.]+\\) can0 20000008#0000800000030000\n"));
    const auto capture =
        RunRecord(device, {"can0", "can1", "-o", dir / "a.pcapng", "-n", "2", "-L"});
    EXPECT_THAT(capture.out, HasSubstr(" can0 123#DEADBEEF\n"));
    EXPECT_THAT(dir.Read("a.pcapng"), StartsWith("\n\r\r\n"));
    EXPECT_THAT(dir.Read("a.pcapng"), HasSubstr("\xDE\xAD\xBE\xEF"));
}

TEST(VcictlRecord, LogFileIsNamedByTheTime) {
    FakeDevice device(Recording({kFrame}, 8));
    const TempDir dir;
    ToolOptions options;
    options.prefix = {"env", "-C", dir.path()};
    const auto result = RunRecord(device, {"can0", "-l", "-n", "1"}, options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    Strings names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        names.push_back(entry.path().filename());
    }
    ASSERT_EQ(names.size(), 1U);
    EXPECT_THAT(names[0], MatchesRegex("candump-[0-9]{4}-[0-9]{2}-[0-9]{2}_[0-9]{6}\\.log"));
    EXPECT_THAT(dir.Read(names[0]), HasSubstr(") can0 123#DEADBEEF\n"));
}

TEST(VcictlRecord, ASignalEndsItWithEverythingWritten) {
    // What was on its way when the record was switched off is written too.
    FakeDevice device([](const Bytes& packet) {
        const auto frame = ParseHex(kFrame);
        return IsSwitch(packet) ? packet.at(8) == 1
                                      ? std::vector<Bytes>{Answer(packet), frame}
                                      : std::vector<Bytes>{ParseHex(kError), Answer(packet)}
                                : std::vector<Bytes>{Answer(packet)};
    });
    const TempDir dir;
    Tool tool(Words(device, {"can0", "-o", dir / "a.log", "-L"}));
    ASSERT_TRUE(tool.WaitForOut("123#DEADBEEF"));
    tool.Signal(SIGINT);
    const auto result = tool.Finish();
    EXPECT_EQ(result.status, -SIGINT);
    EXPECT_THAT(dir.Read("a.log"), MatchesRegex("\\([0-9.]+\\) can0 123#DEADBEEF\n"
                                                "\\([0-9.]+\\) can0 20000008#0000800000030000\n"));
    EXPECT_THAT(result.err, StartsWith("2 records (1 frame, 1 error) in "));
    EXPECT_EQ(Switches(device), (Strings{"0801", "0800"}));
}

TEST(VcictlRecord, DurationEndsItAlsoUnderTraffic) {
    std::atomic<bool> stop = false;
    FakeDevice device(Recording({}, 8));
    Tool tool(Words(device, {"can0", "--duration", "200ms", "-t", "z"}));
    std::thread traffic([&] {
        while (!stop) {
            if (!Switches(device).empty()) {
                device.Say(ParseHex(kFrame));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const auto result = tool.Finish();
    stop = true;
    traffic.join();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, StartsWith(" (000.000000)  can0  RX - -  123   [4]  DE AD BE EF\n"));
    EXPECT_EQ(Switches(device), (Strings{"0801", "0800"}));
}

TEST(VcictlRecord, TooFewRecordsInTimeAreStatus3) {
    FakeDevice device(Recording({kFrame}, 8));
    EXPECT_EQ(RunRecord(device, {"can0", "-n", "2", "--duration", "50ms"}).status, 3);
    EXPECT_EQ(RunRecord(device, {"can0", "-n", "2", "-T", "50"}).status, 3);
    EXPECT_EQ(RunRecord(device, {"can0", "--duration", "50ms"}).status, 0);
    EXPECT_EQ(RunRecord(device, {"can1", "--duration", "0s"}).status, 0);
}

TEST(VcictlRecord, ARefusalSwitchesOffWhatWasOn) {
    FakeDevice device([](const Bytes& packet) {
        if (!IsSwitch(packet) || packet.at(7) == 8) {
            return std::vector<Bytes>{Answer(packet)};
        }
        Bytes refusal = ParseHex("00 05000000 6802 0b 09 16 00000000 0000");
        std::copy_n(packet.begin() + 9, 4, refusal.begin() + 10);
        return std::vector<Bytes>{refusal};
    });
    const auto result = RunRecord(device, {"can0", "can1", "can2"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, StartsWith("vcictl: device refused: VALUE_OUTOF_RANGE (11) to group 9 "
                                       "service 22, handle 0x00000002\n"));
    EXPECT_EQ(Switches(device), (Strings{"0801", "0901", "0800"}));
}

TEST(VcictlRecord, ASwitchThatIsNotAnsweredIsTakenBack) {
    FakeDevice device([](const Bytes& packet) {
        return IsSwitch(packet) && packet.at(7) == 9 && packet.at(8) == 1
                   ? std::vector<Bytes>{}
                   : std::vector<Bytes>{Answer(packet)};
    });
    EXPECT_EQ(RunRecord(device, {"can0", "can1", "--wait", "400"}).status, 3);
    EXPECT_EQ(Switches(device), (Strings{"0801", "0901", "0800", "0900"}));
}

TEST(VcictlRecord, ALinkThatGoesLeavesTheFileComplete) {
    auto device = std::make_unique<FakeDevice>(Recording({kFrame}, 8));
    const TempDir dir;
    Tool tool(Words(*device, {"can0", "-o", dir / "a.log", "-L"}));
    ASSERT_TRUE(tool.WaitForOut("123#DEADBEEF"));
    const std::string path = device->path();
    device.reset();
    const auto result = tool.Finish();
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, StartsWith("1 record (1 frame, 0 errors) in "));
    EXPECT_THAT(result.err, HasSubstr("vcictl: " + path + " was closed by the device\n"));
    EXPECT_THAT(dir.Read("a.log"), HasSubstr(") can0 123#DEADBEEF\n"));
}

// On a terminal, which script(1) provides.
TEST(VcictlRecord, ATerminalSeesALineThatRenewsItself) {
    FakeDevice device(Recording({kFrame}, 8));
    const TempDir dir;
    const std::string command = std::string(VCICTL_BINARY) + " record can0 --duration 300ms -o " +
                                dir / "a.log" + " --device " + device.path();
    ASSERT_EQ(
        std::system(("script -qec '" + command + "' " + dir / "out" + " > /dev/null").c_str()), 0);
    // At the start, perhaps in between, and at the end.
    EXPECT_THAT(dir.Read("out"), HasSubstr("\r\x1b[K0 records (0 frames, 0 errors) in "));
    EXPECT_THAT(dir.Read("out"), HasSubstr("measured\r\x1b[K1 record (1 frame, 0 errors) in "));
    EXPECT_EQ(dir.Read("out").find("DEADBEEF"), std::string::npos);
}

TEST(VcictlRecord, AFullDiskEndsItAndSwitchesOff) {
    FakeDevice device(Recording({kFrame}, 8));
    const TempDir dir;
    std::filesystem::create_symlink("/dev/full", dir / "a.log");
    const auto result = RunRecord(device, {"can0", "-o", dir / "a.log", "-n", "1"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err,
                HasSubstr("vcictl: cannot write " + dir / "a.log" + ": No space left on device\n"));
    EXPECT_EQ(Switches(device), (Strings{"0801", "0800"}));
}

// More records than the file's buffer holds come behind the answer that switches can0 off.
TEST(VcictlRecord, ADiskThatFillsUpWhileItSwitchesOffLeavesNoRecordOn) {
    constexpr size_t kMany = 10'000;
    FakeDevice device([](const Bytes& packet) {
        std::vector<Bytes> answers{Answer(packet)};
        if (IsSwitch(packet) && packet.at(7) == 8 && packet.at(8) == 0) {
            answers.insert(answers.end(), kMany, ParseHex(kFrame));
        }
        return answers;
    });
    const TempDir dir;
    std::filesystem::create_symlink("/dev/full", dir / "a.log");
    const auto result =
        RunRecord(device, {"can0", "can1", "-o", dir / "a.log", "--duration", "50ms"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("No space left on device\n"));
    EXPECT_EQ(Switches(device), (Strings{"0801", "0901", "0800", "0900"}));
}

TEST(VcictlRecord, StandardOutputThatIsFullEndsItAndSwitchesOff) {
    FakeDevice device(Recording({kFrame}, 8));
    ToolOptions options;
    options.output = "/dev/full";
    const auto result = RunRecord(device, {"can0", "--duration", "10s"}, options);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("vcictl: cannot write to standard output: No space left on "
                                      "device\n"));
    EXPECT_EQ(Switches(device), (Strings{"0801", "0800"}));
}

TEST(VcictlRecord, WrongWordsAreStatus2AndNothingIsSwitched) {
    FakeDevice device(Recording({}, 8));
    const std::pair<Strings, std::string> lines[] = {
        {{"can9"}, "'can9' is no CAN channel"},
        {{"can0,xyz"}, "'xyz' is no filter"},
        {{"-o", "a.pcap"}, "'a.pcap' names no format: end it with .pcapng (capture file) or .log"},
        {{"-o", "/nonexistent/a.log"}, "cannot make /nonexistent/a.log: No such file or directory"},
        {{"--duration", "5"}, "--duration: '5' is no time"},
        {{"-t", "x"}, "x not in"},
        {{"-L", "--json"}, "excludes"},
        {{"-l", "-o", "a.log"}, "excludes"},
    };
    for (const auto& [words, message] : lines) {
        const auto result = RunRecord(device, words);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_THAT(result.err, HasSubstr(message));
    }
    EXPECT_EQ(Switches(device), Strings{});
}

} // namespace
