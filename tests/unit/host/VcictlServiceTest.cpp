#include "host/FakeDevice.h"
#include "host/Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::MatchesRegex;
using vcihost::Bytes;
using vcihost::ParseHex;
using vcihost::ToHex;

namespace {

const char kTime[] = "00 0a000000 1001 d202964900000000 00000000 0000000000";
const char kDrop[] = "00 0e000000 6801 d202964900000000 01040001 00000000 0000000000";

// Answers every request with the time, under its own gid and sid.
std::vector<Bytes> Time(const Bytes& packet) {
    Bytes answer = ParseHex(kTime);
    answer[6] = packet.at(6);
    return {answer};
}

// Refuses every request by SET_SYNC_STATE_FAILED.
std::vector<Bytes> Refuse(const Bytes& packet) {
    Bytes answer = ParseHex("00 05000000 6802 2d 10 00 01000000 0000");
    answer[9] = packet.at(6);
    return {answer};
}

TEST(VcictlTime, PrintsDeviceTimeHostTimeAndRoundTrip) {
    FakeDevice device(Time);
    const auto result = RunTool({"time", "--device", device.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out,
                MatchesRegex("device 1\\.234567890 s   host [0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:"
                             "[0-9]{2}:[0-9]{2}\\.[0-9]{9}Z   round trip [0-9]+\\.[0-9]{3} ms\n"));
    EXPECT_EQ(ToHex(device.Received().at(0)), "00020000001001010000000000000000");
}

TEST(VcictlTime, SeveralSamplesGiveTheRate) {
    FakeDevice device(Time);
    const auto result =
        RunTool({"time", "--count", "2", "--interval", "5", "--device", device.path()});
    EXPECT_EQ(result.status, 0);
    // The clock of this device stands still.
    EXPECT_THAT(result.out, HasSubstr("\nrate -1000000.0 ppm against the host's clock, within "));
    EXPECT_THAT(result.out, HasSubstr(" s and 2 samples\n"));
    EXPECT_EQ(device.Received().size(), 2U);
}

TEST(VcictlTime, JsonIsOneObjectALine) {
    FakeDevice device(Time);
    const auto result =
        RunTool({"time", "--json", "--count", "2", "--interval", "5", "--device", device.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out,
                MatchesRegex("(\\{\"device_ns\":1234567890,\"host_ns\":[0-9]+,"
                             "\"round_trip_ns\":[0-9]+\\}\n){2}"
                             "\\{\"samples\":2,\"seconds\":[0-9.e-]+,\"rate_ppm\":-1[0-9.e+]+,"
                             "\"uncertainty_ppm\":[0-9.e+-]+\\}\n"));
}

TEST(VcictlTime, AnInterruptStillGivesTheRate) {
    FakeDevice device(Time);
    Tool tool({"time", "--count", "0", "--interval", "5", "--device", device.path()});
    ASSERT_TRUE(tool.WaitForOut("ms\ndevice"));
    tool.Signal(SIGINT);
    const auto result = tool.Finish();
    EXPECT_EQ(result.status, -SIGINT);
    EXPECT_THAT(result.out, HasSubstr("\nrate "));
}

TEST(VcictlTime, NoAnswerIsStatus3) {
    FakeDevice device(FakeDevice::Silent);
    const auto result = RunTool({"time", "--wait", "30", "--device", device.path()});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "vcictl: no answer within 30 ms; does the application on the device run?\n");
}

TEST(VcictlTime, AnAnswerWithoutATimeIsTrouble) {
    FakeDevice device([](const Bytes&) {
        return std::vector<Bytes>{ParseHex("00 02000000 1001 000000000000000000")};
    });
    const auto result = RunTool({"time", "--device", device.path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "vcictl: the answer holds no device time: "
                          "00020000001001000000000000000000\n");
}

TEST(VcictlSync, EachCommandSendsItsRequest) {
    const std::pair<std::vector<std::string>, std::pair<std::string, std::string>> commands[] = {
        {{"node", "master"}, {"00030000001003010100000000000000", "node master"}},
        {{"node", "slave"}, {"00030000001003000100000000000000", "node slave"}},
        {{"up"}, {"00040000001004010101000000000000", "sync up"}},
        {{"down"}, {"00040000001004010001000000000000", "sync down"}},
        {{"request"}, {"00020000001001010000000000000000", "sync request"}},
        {{"followup", "--time", "0x0102030405060708"},
         {"000a0000001002080706050403020101000000"
          "0000000000",
          "sync follow-up"}},
    };
    for (const auto& [words, expected] : commands) {
        FakeDevice device(Time);
        std::vector<std::string> command = {"sync"};
        command.insert(command.end(), words.begin(), words.end());
        command.insert(command.end(), {"--device", device.path()});
        const auto result = RunTool(command);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, expected.second + ", device time 1.234567890 s\n");
        ASSERT_EQ(device.Received().size(), 1U);
        EXPECT_EQ(ToHex(device.Received()[0]), expected.first);
    }
}

TEST(VcictlSync, ARefusalIsToldByNameWithStatus1) {
    FakeDevice device(Refuse);
    const auto result = RunTool({"sync", "up", "--device", device.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vcictl: device refused: SET_SYNC_STATE_FAILED (45) to group 16 service "
                          "4, handle 0x00000001\n");
}

TEST(VcictlSync, WrongWordsAreStatus2) {
    for (const std::vector<std::string>& words : {std::vector<std::string>{"sync"},
                                                  {"sync", "node"},
                                                  {"sync", "node", "king"},
                                                  {"sync", "sideways"},
                                                  {"sync", "followup", "--time", "now"}}) {
        const auto result = RunTool(words);
        EXPECT_EQ(result.status, 2) << words.back();
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, MatchesRegex("vcictl: [^\n]+\n"));
    }
}

TEST(VcictlSync, WatchPrintsDropsOnly) {
    FakeDevice device(FakeDevice::Silent,
                      {ParseHex(kTime), ParseHex("00"), ParseHex(kDrop),
                       ParseHex("00 0e000000 6801 d202964900000000 01000802 00000000 0000000000"),
                       ParseHex(kDrop)});
    const auto result = RunTool({"sync", "watch", "--count", "2", "--device", device.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "sync line dropped at 1.234567890 s\n"
                          "sync line dropped at 1.234567890 s\n");
}

TEST(VcictlSync, WatchInJson) {
    FakeDevice device(FakeDevice::Silent, {ParseHex(kDrop)});
    EXPECT_EQ(RunTool({"sync", "watch", "--count", "1", "--json", "--device", device.path()}).out,
              "{\"kind\":\"upload\",\"text\":\"sync line dropped at 1.234567890 "
              "s\",\"gid\":104,\"sid\":1,\"device_ns\":1234567890,\"count\":1,\"bus\":\"sync "
              "line\",\"channel\":0,\"code\":1}\n");
}

TEST(VcictlSync, WatchWithoutADropIsStatus3) {
    FakeDevice device(FakeDevice::Silent, {ParseHex(kTime)});
    const auto result = RunTool({"sync", "watch", "--wait", "50", "--device", device.path()});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
}

TEST(VcictlDecode, TellsAFrameInWords) {
    EXPECT_EQ(RunTool({"decode", "000500000068020f0000000000000000"}).out,
              "refused: WRONG_GID (15) to group 0 service 0, handle 0x00000000\n");
    EXPECT_EQ(RunTool({"decode", "--host", "00 03000000 1003 01 44332211 00000000"}).out,
              "sync node: be master, handle 0x11223344\n");
}

TEST(VcictlDecode, Json) {
    EXPECT_EQ(RunTool({"decode", "--json", "00 05000000 6802 0e 01 63 44332211 0000"}).out,
              "{\"kind\":\"refusal\",\"text\":\"refused: WRONG_SID (14) to group 1 service 99, "
              "handle 0x11223344\",\"gid\":104,\"sid\":2,\"code\":14,\"code_name\":\"WRONG_SID\","
              "\"request_gid\":1,\"request_sid\":99,\"handle\":287454020}\n");
}

TEST(VcictlDecode, BytesThatAreNoFrameAreStatus1) {
    const auto result = RunTool({"decode", "0001"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "malformed: too short, 2 of at least 16 bytes\n");
    EXPECT_EQ(RunTool({"decode", "xx"}).status, 2);
}

} // namespace
