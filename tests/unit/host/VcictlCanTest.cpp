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

// Answers each request as the device does: with its gid and sid, and the time where it tells it.
std::vector<Bytes> Device(const Bytes& packet) {
    const bool timed = packet.at(6) >= 51 || packet.at(6) == 44 || packet.at(6) == 1;
    Bytes answer = ParseHex(timed ? "00 0a000000 0000 d202964900000000 00000000 0000000000"
                                  : "00 02000000 0000 00000000 0000000000");
    answer[5] = packet.at(5);
    answer[6] = packet.at(6);
    if (packet.at(6) == 53) {
        return {};
    }
    return {answer};
}

// Refuses requests of sid 41 and above by `code`; tells the time.
FakeDevice::Answers Refusing(uint8_t code) {
    return [code](const Bytes& packet) {
        if (packet.at(6) == 1) {
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
std::vector<std::string> Services(const FakeDevice& device) {
    std::vector<std::string> services;
    for (const Bytes& packet : device.Received()) {
        services.push_back(ToHex(std::span(packet).subspan(5, packet.at(1) + 256U * packet.at(2))));
    }
    return services;
}

ToolResult RunCan(const FakeDevice& device, std::vector<std::string> words,
                  const ToolOptions& options = {}) {
    words.insert(words.begin(), "can");
    words.insert(words.end(), {"--device", device.path()});
    return RunTool(words, options);
}

using Strings = std::vector<std::string>;

TEST(VcictlCan, SetChoosesTheTimingAndShowsIt) {
    FakeDevice device(Device);
    const auto result = RunCan(device, {"set", "can0", "--bitrate", "500k"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "can0: classic, normal, accepted\n"
                          "  nominal  500000 bit/s, error 0.000 %, sample point 87.5 %, brp 1 sjw "
                          "5 seg1 69 seg2 10\n");
    EXPECT_EQ(Services(device), Strings{"15290800000105450a00000000"});
}

TEST(VcictlCan, SetOfACanFdChannelThatListens) {
    FakeDevice device(Device);
    const auto result = RunCan(device, {"set", "1", "--bitrate", "500000", "--dbitrate", "2M",
                                        "--dsample-point", "80%", "--dsjw", "4", "--listen-only"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "can1: CAN FD, listen-only, accepted\n"
                          "  nominal  500000 bit/s, error 0.000 %, sample point 87.5 %, brp 1 sjw "
                          "5 seg1 69 seg2 10\n"
                          "  data     2000000 bit/s, error 0.000 %, sample point 80.0 %, brp 1 sjw "
                          "4 seg1 15 seg2 4\n");
    EXPECT_EQ(Services(device), Strings{"15290901010105450a01040f04"});
}

TEST(VcictlCan, SetTakesTimingsAsTheyStand) {
    FakeDevice device(Device);
    EXPECT_EQ(RunCan(device, {"set", "8", "--timing", "2,3,15,4"}).out,
              "can0: classic, normal, accepted\n"
              "  nominal  1000000 bit/s, sample point 80.0 %, brp 2 sjw 3 seg1 15 seg2 4\n");
    RunCan(device, {"set", "can5", "--timing", "1,10,69,10,1,2,14,5", "--listen"});
    EXPECT_EQ(Services(device),
              (Strings{"152908000002030f0400000000", "15290d0101010a450a01020e05"}));
}

TEST(VcictlCan, ADryRunSaysNothingOfADevice) {
    EXPECT_EQ(RunTool({"can", "set", "can0", "--timing", "2,3,15,4", "--dry-run"}).out,
              "can0: classic, normal\n"
              "  nominal  1000000 bit/s, sample point 80.0 %, brp 2 sjw 3 seg1 15 seg2 4\n");
}

TEST(VcictlCan, SetInJsonWithoutADevice) {
    const auto result = RunTool(
        {"can", "set", "can0", "--bitrate", "1M", "--dbitrate", "8M", "--dry-run", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "{\"channel\":\"can0\",\"fd\":true,\"listen\":false,\"nominal\":{\"bitrate\":"
              "1000000.0,\"error_percent\":0.0,\"sample_point\":0.75,\"brp\":1,\"sjw\":5,\"seg1\":"
              "29,\"seg2\":10},\"data\":{\"bitrate\":8000000.0,\"error_percent\":0.0,\"sample_"
              "point\":0.8,\"brp\":1,\"sjw\":1,\"seg1\":3,\"seg2\":1}}\n");
}

TEST(VcictlCan, OpenAndCloseTakeSeveralChannels) {
    FakeDevice device(Device);
    const auto result = RunCan(device, {"open", "can0", "13"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "can0: open accepted, device time 1.234567890 s\n"
                          "can5: open accepted, device time 1.234567890 s\n");
    EXPECT_EQ(RunCan(device, {"close", "can0"}).out,
              "can0: close accepted, device time 1.234567890 s\n");
    EXPECT_EQ(Services(device), (Strings{"152c0801", "152c0d01", "152c0800"}));
}

TEST(VcictlCan, WhatElseIsSetOfAChannel) {
    FakeDevice device(Device);
    EXPECT_EQ(RunCan(device, {"mode", "can0", "listen"}).out, "can0: mode listen accepted\n");
    EXPECT_EQ(RunCan(device, {"mode", "can0", "normal"}).out, "can0: mode normal accepted\n");
    EXPECT_EQ(RunCan(device, {"ssp", "can1", "16"}).out,
              "can1: secondary sample point 16 accepted\n");
    EXPECT_EQ(RunCan(device, {"ssp", "can1", "off"}).out,
              "can1: secondary sample point off accepted\n");
    EXPECT_EQ(RunCan(device, {"term", "can2", "2"}).out, "can2: termination 2 accepted\n");
    EXPECT_EQ(Services(device),
              (Strings{"152d0801", "152d0800", "152a090110", "152a090000", "152b0a02"}));
}

TEST(VcictlCan, ARefusalStopsTheCommand) {
    FakeDevice device(Refusing(11));
    const auto result = RunCan(device, {"open", "can0", "can1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vcictl: device refused: VALUE_OUTOF_RANGE (11) to group 21 service 44, "
                          "handle 0x00000001\n");
    EXPECT_EQ(device.Received().size(), 1U);
}

TEST(VcictlCan, NoAnswerIsStatus3) {
    FakeDevice device(FakeDevice::Silent);
    EXPECT_EQ(RunCan(device, {"mode", "can0", "listen", "--wait", "30"}).status, 3);
}

TEST(VcictlCan, WrongWordsAreStatus2AndNothingIsSent) {
    FakeDevice device(Device);
    const std::pair<Strings, std::string> lines[] = {
        {{"open", "can6"},
         "'can6' is no CAN channel; there are can0 to can5, or 0 to 5, or 8 to "
         "13 as requests number them"},
        {{"open", "can0", "can9"},
         "'can9' is no CAN channel; there are can0 to can5, or 0 to 5, "
         "or 8 to 13 as requests number them"},
        {{"set", "can0"}, "give --bitrate or --timing"},
        {{"set", "can0", "--bitrate", "0"},
         "--bitrate: '0' is no bit rate; write 500000, 500k or 2M"},
        {{"set", "can0", "--bitrate", "500k", "--dbitrate", "7M"},
         "dbitrate 7M: the 40 MHz clock does not reach it within 0.5 %; the nearest are 6.66667M "
         "and 8M bit/s"},
        {{"set", "can0", "--timing", "1,2,3"},
         "--timing: 3 numbers; write brp,sjw,seg1,seg2 once, or twice for CAN FD"},
        {{"set", "can0", "--timing", "1,2,3,256"},
         "--timing: '256' is no whole number from 0 to 255"},
        {{"set", "can0", "--timing", "0,2,3,4"}, "bitrate: brp 0 is not from 1 to 255"},
        {{"ssp", "can0", "64"}, "OFFSET: '64' is neither off nor a whole number from 0 to 63"},
    };
    for (const auto& [words, text] : lines) {
        const auto result = RunCan(device, words);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "vcictl: " + text + "\n");
    }
    for (const Strings& words : {Strings{},
                                 {"open"},
                                 {"mode", "can0"},
                                 {"mode", "can0", "loud"},
                                 {"term", "can0", "3"},
                                 {"set", "can0", "--dbitrate", "2M"},
                                 {"set", "can0", "--bitrate", "1M", "--sjw", "129"}}) {
        const auto result = RunCan(device, words);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, MatchesRegex("vcictl: [^\n]+\n"));
    }
    EXPECT_TRUE(device.Received().empty());
}

TEST(VcictlCan, ZeroIsRefusedWithWhatIsPossible) {
    FakeDevice device(Device);
    const std::pair<Strings, std::string> lines[] = {
        {{"set", "can0", "--bitrate", "1M", "--sjw", "0"},
         "--sjw: '0' is no whole number from 1 to 128"},
        {{"set", "can0", "--bitrate", "1M", "--dbitrate", "2M", "--dsjw", "0"},
         "--dsjw: '0' is no whole number from 1 to 16"},
        {{"send", "can0", "123#", "--count", "0"},
         "--count: '0' is no whole number from 1 to 4294967295"},
    };
    for (const auto& [words, text] : lines) {
        const auto result = RunCan(device, words);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr(text));
    }
    EXPECT_TRUE(device.Received().empty());
}

TEST(VcictlCanSend, FramesGoInOneRequest) {
    FakeDevice device(Device);
    const auto result = RunCan(device, {"send", "can0", "123#DEADBEEF", "7FF#R2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "can0: 2 frames in 1 request, device time 1.234567890 s\n");
    EXPECT_EQ(Services(device), Strings{"163408022301000004deadbeefff070000220000"});
}

TEST(VcictlCanSend, CountRepeatsTheRequestAndGapParts) {
    FakeDevice device(Device);
    const auto start = std::chrono::steady_clock::now();
    const auto result = RunCan(device, {"send", "can0", "123#11", "--count", "3", "--gap", "20ms"});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
    EXPECT_EQ(result.out, "can0: 3 frames in 3 requests, device time 1.234567890 s\n");
    EXPECT_EQ(Services(device), Strings(3, "16340801230100000111"));
}

TEST(VcictlCanSend, ManyFramesComeFromStandardInput) {
    FakeDevice device(Device);
    std::string input = "# a comment\n\n";
    for (int i = 0; i < 256; ++i) {
        input += " 123#11\r\n";
    }
    const auto result = RunCan(device, {"send", "can0", "-"}, {.input = input});
    EXPECT_EQ(result.out, "can0: 256 frames in 2 requests, device time 1.234567890 s\n");
    const auto services = Services(device);
    ASSERT_EQ(services.size(), 2U);
    EXPECT_EQ(services[0].substr(0, 8), "163408ff");
    EXPECT_EQ(services[1], "16340801230100000111");
}

TEST(VcictlCanSend, WithoutAnswerEachFrameIsARequestBetweenTwoRequestsForTheTime) {
    FakeDevice device(Device);
    const auto result = RunCan(device, {"send", "can3", "123#11", "124##0", "--no-answer"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "can3: 2 frames, none refused\n");
    EXPECT_EQ(Services(device),
              (Strings{"1001", "16350b230100000111", "16350b2401000040", "1001"}));
}

TEST(VcictlCanSend, ARefusalSaysWhatToDo) {
    for (const auto& words :
         {Strings{"send", "can0", "123#11"}, Strings{"send", "can0", "123#11", "--no-answer"},
          Strings{"cyclic", "can0", "123#11@10ms"}}) {
        FakeDevice closed(Refusing(12));
        auto result = RunCan(closed, words);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err,
                    MatchesRegex("vcictl: device refused: SERVICE_WRONG_SEQUENCE "
                                 "\\(12\\) to group 22 service 5[123], handle "
                                 "0x0000000[12]; can0 is closed: vcictl can open can0\n"));
        FakeDevice listening(Refusing(160));
        result = RunCan(listening, words);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr("; can0 listens only: vcictl can mode can0 normal\n"));
    }
}

TEST(VcictlCanSend, AnOldRefusalIsNotTakenForAnAnswer) {
    FakeDevice device(Device, {ParseHex("00 05000000 6802 0c 16 35 01000000 0000")});
    EXPECT_EQ(RunCan(device, {"send", "can0", "123#11", "--no-answer"}).status, 0);
}

TEST(VcictlCanSend, WrongFramesAreNamed) {
    FakeDevice device(Device);
    EXPECT_EQ(RunCan(device, {"send", "can0", "123#1"}).err,
              "vcictl: frame '123#1': the byte before character 6 has only one digit\n");
    EXPECT_EQ(RunCan(device, {"send", "can0", "-"}, {.input = "123#11\n12#\n"}).err,
              "vcictl: standard input, line 2: frame '12#': an identifier has three hex digits, or "
              "eight when it is extended\n");
    EXPECT_EQ(RunCan(device, {"send", "can0", "-"}).err,
              "vcictl: no frame to send: standard input holds none\n");
    EXPECT_EQ(RunCan(device, {"send", "can0", "123#", "--gap", "5"}).err,
              "vcictl: --gap: '5' is no time; write it with its unit, as 200us, 10ms or 1s\n");
    EXPECT_TRUE(device.Received().empty());
}

TEST(VcictlCanCyclic, StartsFrames) {
    FakeDevice device(Device);
    const auto result = RunCan(device, {"cyclic", "can0", "123#11@10ms", "00000123##1AABB@1s"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "can0: 2 starts, 0 stops accepted, device time 1.234567890 s\n");
    EXPECT_EQ(Services(device), Strings{"16330802230100000a00011123010080e80362aabb"});
}

TEST(VcictlCanCyclic, StopsGoFirst) {
    FakeDevice device(Device);
    const auto result =
        RunCan(device, {"cyclic", "can1", "124#@5ms", "--stop", "123", "124#R", "125##"});
    EXPECT_EQ(result.out, "can1: 1 start, 3 stops accepted, device time 1.234567890 s\n");
    EXPECT_EQ(Services(device), (Strings{"16330903230100000000002401000000002025010000000040",
                                         "1633090124010000050000"}));
}

TEST(VcictlCanCyclic, JsonCountsWhatWasAccepted) {
    FakeDevice device(Device);
    EXPECT_EQ(RunCan(device, {"cyclic", "can0", "124#@5ms", "--stop", "123", "--json"}).out,
              "{\"channel\":\"can0\",\"starts\":1,\"stops\":1,\"device_ns\":1234567890}\n");
}

TEST(VcictlCanCyclic, ShowsThePlanWhenTheRateIsGiven) {
    FakeDevice device(Device);
    const auto result = RunCan(device, {"cyclic", "can0", "123#1122334455667788@10ms",
                                        "124#1122334455667788@10ms", "--bitrate", "500k"});
    EXPECT_EQ(result.out, "can0: 2 starts, 0 stops accepted, device time 1.234567890 s\n"
                          "bus   id          period us  frame us  offset us  first us conflicts\n"
                          "can0  123             10000       234          0     20000         0\n"
                          "can0  124             10000       234        240     10240         0\n"
                          "window 10000 us\n"
                          "can0 load 4.68 %\n");
    EXPECT_THAT(RunCan(device, {"cyclic", "can0", "123#@10ms", "--bitrate", "500k", "--json"}).out,
                HasSubstr("\"device_ns\":1234567890,\"plan\":{\"window_us\":10000,"));
}

TEST(VcictlCanCyclic, WrongUsageSendsNothing) {
    FakeDevice device(Device);
    const std::pair<Strings, std::string> lines[] = {
        {{"cyclic", "can0"}, "give frames to start, or --stop and identifiers"},
        {{"cyclic", "can0", "123#"}, "frame '123#': no period; write it as 123#@10ms"},
        {{"cyclic", "can0", "123#@1ms", "123#R@1ms"},
         "identifier 123 stands twice on can0; the device keeps one periodic frame an identifier"},
        {{"cyclic", "can0", "--stop", "12"},
         "identifier '12': an identifier has three hex digits, or eight when it is extended"},
        {{"cyclic", "can0", "123##0@1ms", "--bitrate", "1M"},
         "there are CAN FD frames: give --dbitrate as well"},
    };
    for (const auto& [words, text] : lines) {
        const auto result = RunCan(device, words);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, "vcictl: " + text + "\n");
    }
    EXPECT_TRUE(device.Received().empty());
}

} // namespace
