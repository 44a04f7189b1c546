#include "host/FakeDevice.h"
#include "host/Tool.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::StartsWith;
using vcihost::Bytes;
using vcihost::ParseHex;
using vcihost::ToHex;

namespace {

using Strings = std::vector<std::string>;

// Answers each request as the device does, with its gid and sid.
std::vector<Bytes> Device(const Bytes& packet) {
    Bytes answer = ParseHex("00 02000000 0000 00000000 0000000000");
    answer[5] = packet.at(5);
    answer[6] = packet.at(6);
    return {answer};
}

// Refuses requests by `code`; sid 6 is done if `stops`.
FakeDevice::Answers Refusing(uint8_t code, bool stops = false) {
    return [code, stops](const Bytes& packet) {
        if (stops && packet.at(6) == 6) {
            return Device(packet);
        }
        Bytes answer = ParseHex("00 05000000 6802 00 00 00 00000000 0000");
        answer[7] = code;
        answer[8] = packet.at(5);
        answer[9] = packet.at(6);
        std::copy_n(packet.begin() + 5 + packet.at(1), 4, answer.begin() + 10);
        return std::vector<Bytes>{answer};
    };
}

// The service sections that the device got.
Strings Services(const FakeDevice& device) {
    Strings services;
    for (const Bytes& packet : device.Received()) {
        services.push_back(ToHex(std::span(packet).subspan(5, packet.at(1) + 256U * packet.at(2))));
    }
    return services;
}

ToolResult RunLin(const FakeDevice& device, Strings words, const ToolOptions& options = {}) {
    words.insert(words.begin(), "lin");
    words.insert(words.end(), {"--device", device.path()});
    return RunTool(words, options);
}

TEST(VcictlLin, OpenSaysWhatItOpensWith) {
    FakeDevice device(Device);
    const auto result = RunLin(device, {"open", "lin0"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "lin0: open, 19200 bit/s, LIN 2.1, internal supply\n");
    EXPECT_EQ(RunLin(device, {"open", "1", "--bitrate", "10.4k", "--version", "j2602", "--power",
                              "external"})
                  .out,
              "lin1: open, 10400 bit/s, LIN j2602, external supply\n");
    EXPECT_EQ(RunLin(device, {"open", "51", "--version", "1.3"}).status, 0);
    EXPECT_EQ(Services(device),
              (Strings{"060a0001004b0200", "060a0101a0280401", "060a0101004b0000"}));
}

TEST(VcictlLin, CloseStopsTheScheduleFirst) {
    FakeDevice device(Device);
    EXPECT_EQ(RunLin(device, {"close", "lin1"}).out, "lin1: closed\n");
    EXPECT_EQ(Services(device), (Strings{"06060100", "060a010000000000"}));
}

TEST(VcictlLin, RoleClearStopAndSleep) {
    FakeDevice device(Device);
    EXPECT_EQ(RunLin(device, {"role", "lin0", "commander"}).out, "lin0: commander\n");
    EXPECT_EQ(RunLin(device, {"role", "lin1", "responder"}).out, "lin1: responder\n");
    EXPECT_EQ(RunLin(device, {"clear", "lin0", "table"}).out, "lin0: table cleared\n");
    EXPECT_EQ(RunLin(device, {"clear", "lin0", "responses"}).out, "lin0: responses cleared\n");
    EXPECT_EQ(RunLin(device, {"clear", "lin0", "all"}).out, "lin0: table and responses cleared\n");
    EXPECT_EQ(RunLin(device, {"stop", "lin0"}).out, "lin0: schedule stopped\n");
    EXPECT_EQ(RunLin(device, {"sleep", "lin0"}).out, "lin0: sleep accepted\n");
    EXPECT_EQ(Services(device), (Strings{"06020001", "06020100", "06050000", "06050001", "06050002",
                                         "06060000", "0608000000000000000000"}));
}

TEST(VcictlLin, TableFromAFile) {
    FakeDevice device(Device);
    const TempDir dir;
    dir.Write("a.txt", "# body\n10 2 10\n11 8 20 # doors\n");
    const auto result = RunLin(device, {"table", "lin0", dir / "a.txt"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "lin0: table of 2 entries loaded\n");
    ToolOptions options;
    options.input = "3C 8 65535\n";
    EXPECT_EQ(RunLin(device, {"table", "lin1", "-"}, options).out,
              "lin1: table of 1 entry loaded\n");
    EXPECT_EQ(Services(device), (Strings{"0601000210020a0011081400", "060101013c08ffff"}));
}

TEST(VcictlLin, ATableIsShownWithoutADevice) {
    const TempDir dir;
    dir.Write("a.txt", "10 2 10\n11 8 1\n");
    const auto result = RunTool({"lin", "table", "lin0", dir / "a.txt", "--dry-run"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "entry id  PID length    slot us       at us\n"
                          "    1 10  50       2      10000           0\n"
                          "    2 11  11       8       7239       10000\n"
                          "cycle 17239 us at 19200 bit/s\n");
    EXPECT_EQ(
        RunTool({"lin", "table", "lin0", dir / "a.txt", "--dry-run", "--json", "--bitrate", "9600"})
            .out,
        "{\"bitrate\":9600,\"slots\":[{\"id\":16,\"pid\":80,\"length\":2,\"slot_us\":10000,"
        "\"at_us\":0},{\"id\":17,\"pid\":17,\"length\":8,\"slot_us\":14479,\"at_us\":10000}],"
        "\"cycle_us\":24479}\n");
}

TEST(VcictlLin, ResponsesAreDeletedThenSet) {
    FakeDevice device(Device);
    const auto result =
        RunLin(device, {"response", "lin0", "10#1122", "11#00.FF", "--delete", "12", "3C"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "lin0: 2 responses set, 2 deleted\n");
    EXPECT_EQ(RunLin(device, {"response", "lin1", "--delete", "10"}).out,
              "lin1: 0 responses set, 1 deleted\n");
    EXPECT_EQ(Services(device),
              (Strings{"06040002123c", "0603000210021122000000000000110200ff000000000000",
                       "0604010110"}));
}

TEST(VcictlLin, RunStartsTheSchedule) {
    FakeDevice device(Device);
    const TempDir dir;
    dir.Write("a.txt", "10 2 10\n");
    EXPECT_EQ(RunLin(device, {"run", "lin0"}).out, "lin0: schedule start accepted\n");
    EXPECT_EQ(RunLin(device, {"run", "lin1", "--table", dir / "a.txt"}).out,
              "lin1: schedule start accepted\n");
    EXPECT_EQ(Services(device), (Strings{"06060001", "0601010110020a00", "06060101"}));
}

TEST(VcictlLin, SendTakesTimesOnTheBus) {
    FakeDevice device(Device);
    const auto result = RunLin(device, {"send", "lin0", "10#1122", "3D#R4"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "lin0: 2 frames handed to the driver\n");
    RunLin(device, {"send", "lin1", "10#1122", "--pid", "0x10", "--sync", "0x54", "--break", "20",
                    "--break-delimiter", "2", "--inter-byte", "63", "--spaces", "1,2,3,4,5,6,7,8,9",
                    "--header-bitrate", "19200", "--response-bitrate", "1"});
    EXPECT_EQ(Services(device), (Strings{"060700010002550050"
                                         "0d01"
                                         "1122000000000000"
                                         "000000000000000000"
                                         "0000000000000000",
                                         "06070000000455007d"
                                         "0d01"
                                         "0000000000000000"
                                         "000000000000000000"
                                         "0000000000000000",
                                         "0607010100025" // sync 54
                                         "43f10"
                                         "1402"
                                         "1122000000000000"
                                         "010203040506070809"
                                         "004b000001000000"}));
}

TEST(VcictlLin, WakeAndDisturb) {
    FakeDevice device(Device);
    EXPECT_EQ(RunLin(device, {"wake", "lin1"}).out, "lin1: wake-up accepted\n");
    RunLin(device, {"wake", "lin1", "--count", "3", "--interval", "150", "--length", "258"});
    EXPECT_EQ(RunLin(device, {"disturb", "lin0", "on", "--id", "10", "--type", "2", "--field", "5",
                              "--offset", "4", "--length", "3", "--times", "258"})
                  .out,
              "lin0: disturb on accepted\n");
    EXPECT_EQ(RunLin(device, {"disturb", "lin0", "off"}).out, "lin0: disturb off accepted\n");
    EXPECT_EQ(Services(device),
              (Strings{"0608010001010000000000", "0608010001039600020100",
                       "06090001011002030405010201", "06090000000000000000000000"}));
}

TEST(VcictlLin, RefusalsComeWithWhatToDo) {
    struct Case {
        uint8_t code;
        Strings words;
        std::string message;
    };
    const TempDir dir;
    dir.Write("a.txt", "10 2 10\n");
    const Case cases[] = {
        {12,
         {"run", "lin0"},
         "SERVICE_WRONG_SEQUENCE (12) to group 6 service 6, handle "
         "0x00000001; lin0 is closed: vcictl lin open lin0\n"},
        {12,
         {"role", "lin1", "commander"},
         "; lin1 is closed (vcictl lin open lin1) or its schedule runs (vcictl lin stop lin1)\n"},
        {19,
         {"sleep", "lin0"},
         "; lin0 is a responder, which can only wake the bus: vcictl lin role lin0 commander\n"},
        {19,
         {"wake", "lin0"},
         "; lin0 is a commander, which can only send the bus to sleep: "
         "vcictl lin role lin0 responder\n"},
        {19,
         {"open", "lin0"},
         "; its device or socket does not open; the device's console says more\n"},
        {19, {"close", "lin0"}, "; lin0 is not open\n"},
        {21,
         {"send", "lin1", "10#11"},
         "; the driver of lin1 did not take it; the device's console says more\n"},
        {54,
         {"response", "lin1", "10#11"},
         "; the driver of lin1 did not take it; the device's console says more\n"},
        {54,
         {"table", "lin0", dir / "a.txt"},
         "; the table has an identifier more often than the device can count; leave entries "
         "out\n"},
        {10,
         {"disturb", "lin0", "off"},
         "ERROR_LENGTH (10) to group 6 service 9, handle 0x00000001\n"},
    };
    for (const Case& each : cases) {
        FakeDevice device(Refusing(each.code));
        const auto result = RunLin(device, each.words);
        EXPECT_EQ(result.status, 1) << each.message;
        EXPECT_THAT(result.err, StartsWith("vcictl: device refused: "));
        EXPECT_THAT(result.err, HasSubstr(each.message));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST(VcictlLin, ARefusedDeleteSetsNothing) {
    FakeDevice device(Refusing(12));
    EXPECT_EQ(RunLin(device, {"response", "lin0", "10#11", "--delete", "12"}).status, 1);
    EXPECT_EQ(Services(device), Strings{"0604000112"});
}

TEST(VcictlLin, NoAnswerIsStatus3) {
    FakeDevice device(FakeDevice::Silent);
    EXPECT_EQ(RunLin(device, {"open", "lin0", "--wait", "50"}).status, 3);
    EXPECT_EQ(RunLin(device, {"send", "lin0", "10#11", "--wait", "50"}).status, 3);
}

TEST(VcictlLin, WrongWordsAreStatus2AndNothingIsSent) {
    FakeDevice device(Device);
    const TempDir dir;
    dir.Write("a.txt", "10 2 10\n99 2 10\n");
    dir.Write("empty.txt", "");
    const std::pair<Strings, std::string> lines[] = {
        {{"open", "lin2"}, "'lin2' is no LIN channel"},
        {{"open", "lin0", "--bitrate", "65536"}, "--bitrate: '65536' is no LIN bit rate"},
        {{"open", "lin0", "--bitrate", "9600.5"}, "--bitrate: '9600.5' is no LIN bit rate"},
        {{"open", "lin0", "--version", "3"}, "3 not in {1.3,2.0,2.1,2.2,j2602}"},
        {{"open", "lin0", "--power", "solar"}, "solar not in"},
        {{"role", "lin0", "master"}, "master not in"},
        {{"table", "lin0", dir / "a.txt"}, dir / "a.txt" + ", line 2: '99' is no LIN identifier"},
        {{"table", "lin0", dir / "empty.txt"}, dir / "empty.txt" + " holds no entry"},
        {{"table", "lin0", dir / "none.txt"},
         "cannot read " + dir / "none.txt" + ": No such file or directory"},
        {{"table", "lin0", dir.path()}, "cannot read " + dir.path() + ": Is a directory"},
        {{"table", "lin0", "-"}, "standard input holds no entry"},
        {{"table", "lin0", "a", "--json"}, "requires --dry-run"},
        {{"response", "lin0"}, "give responses to set, or --delete and identifiers"},
        {{"response", "lin0", "10#R2"},
         "'10#R2' is a header alone; write the bytes of the response, as 10#1122"},
        {{"response", "lin0", "--delete", "40"}, "'40' is no LIN identifier"},
        {{"send", "lin0", "10"}, "'10' is no LIN frame: there is no #"},
        {{"send", "lin0", "10#11", "--inter-byte", "64"}, "'64' is no whole number from 0 to 63"},
        {{"send", "lin0", "10#11", "--spaces", "1,2"}, "--spaces"},
        {{"send", "lin0", "10#11", "--spaces", "1,2,3,4,5,6,7,8,256"},
         "--spaces: '256' is no whole number from 0 to 255"},
        {{"clear", "lin0", "table", "--wait", "x"}, "'x' is no whole number"},
        {{"disturb", "lin0", "on", "--id", "77"}, "'77' is no LIN identifier"},
        {{"run", "lin0", "--duration", "1s"}, "requires --table"},
        {{"run", "lin0", "--table", "a", "--max-jitter", "1ms"}, "requires --duration"},
        {{"run", "lin0", "--table", dir / "a.txt"}, "line 2: '99' is no LIN identifier"},
    };
    for (const auto& [words, message] : lines) {
        const auto result = RunLin(device, words);
        EXPECT_EQ(result.status, 2) << message << result.out;
        EXPECT_THAT(result.err, HasSubstr(message));
    }
    Strings many{"response", "lin0"};
    many.insert(many.end(), 256, "10#11");
    EXPECT_THAT(RunLin(device, many).err, HasSubstr("more than 255 responses at once"));
    EXPECT_EQ(Services(device), Strings{});
}

} // namespace
