#include "host/FakeDevice.h"
#include "host/Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::MatchesRegex;
using vcihost::Bytes;
using vcihost::ParseHex;
using vcihost::ToHex;

namespace {

using Strings = std::vector<std::string>;

const char kSample[] =
    "00 13000000 1404 d202964900000000 05 02 04 0000 3412 7856 00000000 00000000";
const char kLine[] = "1.234567890 s  in 1010 0000  out 01  adc  4660 22136  trigger 0x04\n";
const char kOther[] = "00 0a000000 1001 d202964900000000 00000000 0000000000";

// Answers every request with the time, under its own gid and sid.
std::vector<Bytes> Time(const Bytes& packet) {
    Bytes answer = ParseHex(kOther);
    answer[5] = packet.at(5);
    answer[6] = packet.at(6);
    return {answer};
}

ToolResult RunIo(const FakeDevice& device, Strings words) {
    words.insert(words.begin(), "io");
    words.insert(words.end(), {"--device", device.path()});
    return RunTool(words);
}

TEST(VcictlIo, EachCommandSendsItsRequest) {
    const std::pair<Strings, std::pair<Strings, std::string>> commands[] = {
        {{"out", "1", "high"}, {{"00 05000000 1402010101 01000000 0000"}, "output 1 high"}},
        {{"out", "2", "low", "1", "high"},
         {{"00 07000000 14020202000101 01000000 00000000"}, "output 2 low, output 1 high"}},
        {{"on"}, {{"00 03000000 140101 01000000 00000000"}, "samples on"}},
        {{"on", "--period", "100"},
         {{"00 03000000 140101 01000000 00000000", "00 04000000 14036400 02000000 000000"},
          "samples on, period 100"}},
        {{"off"}, {{"00 03000000 140100 01000000 00000000"}, "samples off"}},
        {{"period", "65535"}, {{"00 04000000 1403ffff 01000000 000000"}, "period 65535"}},
        {{"trigger", "on"}, {{"00 03000000 140701 01000000 00000000"}, "triggers on"}},
        {{"trigger", "off"}, {{"00 03000000 140700 01000000 00000000"}, "triggers off"}},
    };
    for (const auto& [words, expected] : commands) {
        FakeDevice device(Time);
        const auto result = RunIo(device, words);
        EXPECT_EQ(result.status, 0) << words.front();
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out, expected.second + ", device time 1.234567890 s\n");
        Strings received;
        for (const Bytes& packet : device.Received()) {
            received.push_back(ToHex(packet));
        }
        Strings sent;
        for (const std::string& hex : expected.first) {
            sent.push_back(ToHex(ParseHex(hex)));
        }
        EXPECT_EQ(received, sent) << words.front();
    }
}

TEST(VcictlIo, ARefusalIsToldByNameWithStatus1) {
    FakeDevice device([](const Bytes&) {
        return std::vector<Bytes>{ParseHex("00 05000000 6802 0b 1401 01000000 0000")};
    });
    const auto result = RunIo(device, {"on", "--period", "5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vcictl: device refused: VALUE_OUTOF_RANGE (11) to group 20 service 1, "
                          "handle 0x00000001\n");
    EXPECT_EQ(device.Received().size(), 1U); // the period is not asked for
}

TEST(VcictlIo, NoAnswerIsStatus3) {
    FakeDevice device(FakeDevice::Silent);
    EXPECT_EQ(RunIo(device, {"off", "--wait", "30"}).status, 3);
}

TEST(VcictlIo, WrongWordsAreStatus2AndSendNothing) {
    for (const Strings& words : {Strings{},
                                 {"sideways"},
                                 {"out"},
                                 {"out", "1"},
                                 {"out", "3", "high"},
                                 {"out", "0", "high"},
                                 {"out", "1", "up"},
                                 {"out", "1", "high", "2"},
                                 {"out", "1", "high", "2", "low", "1", "low"},
                                 {"period"},
                                 {"period", "65536"},
                                 {"period", "-1"},
                                 {"on", "--period", "x"},
                                 {"trigger"},
                                 {"trigger", "maybe"},
                                 {"watch", "--duration", "5"},
                                 {"watch", "--count", "x"}}) {
        FakeDevice device(Time);
        const auto result = RunIo(device, words);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(words);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, MatchesRegex("vcictl: [^\n]+\n"));
        EXPECT_TRUE(device.Received().empty());
    }
}

TEST(VcictlIo, WatchPrintsSamplesOnly) {
    FakeDevice device(FakeDevice::Silent, {ParseHex(kOther), ParseHex("00"), ParseHex(kSample),
                                           ParseHex(kSample), ParseHex(kSample)});
    const auto result = RunIo(device, {"watch", "--count", "2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, std::string(kLine) + kLine);
    EXPECT_TRUE(device.Received().empty()); // it only looks
}

TEST(VcictlIo, WatchInJson) {
    FakeDevice device(FakeDevice::Silent, {ParseHex(kSample)});
    EXPECT_EQ(RunIo(device, {"watch", "-n", "1", "--json"}).out,
              "{\"kind\":\"upload\",\"text\":\"1.234567890 s  in 1010 0000  out 01  adc  4660 "
              "22136  trigger 0x04\",\"gid\":20,\"sid\":4,\"device_ns\":1234567890,\"inputs\":5,"
              "\"outputs\":2,\"trigger\":4,\"adc1\":4660,\"adc2\":22136}\n");
}

TEST(VcictlIo, WatchEndsWithItsDuration) {
    FakeDevice device(FakeDevice::Silent, {ParseHex(kSample)});
    const auto result = RunIo(device, {"watch", "--duration", "100ms"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, kLine);
}

TEST(VcictlIo, WatchWithTooFewSamplesIsStatus3) {
    FakeDevice device(FakeDevice::Silent, {ParseHex(kSample)});
    const auto few = RunIo(device, {"watch", "--count", "2", "--duration", "50ms"});
    EXPECT_EQ(few.status, 3);
    EXPECT_EQ(few.out, kLine);
    FakeDevice silent(FakeDevice::Silent);
    EXPECT_EQ(RunIo(silent, {"watch", "--duration", "50ms"}).status, 3);
}

TEST(VcictlIo, WatchEndsByASignal) {
    FakeDevice device(FakeDevice::Silent, {ParseHex(kSample)});
    Tool tool({"io", "watch", "--device", device.path()});
    ASSERT_TRUE(tool.WaitForOut("trigger 0x04\n"));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Finish().status, -SIGINT);
}

} // namespace
