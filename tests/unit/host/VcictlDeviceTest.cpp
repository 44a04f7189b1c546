#include "host/FakeDevice.h"
#include "host/Tool.h"
#include "vcihost/Describe.h"
#include "vcihost/Frame.h"

#include <atomic>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::MatchesRegex;
using vcihost::Bytes;
using vcihost::ParseHex;
using vcihost::ToHex;

namespace {

using Strings = std::vector<std::string>;

const std::string kTime = "d202964900000000";
const std::string kVersion = "0106 0102 010200 010200" + kTime;
const std::string kUid = "0114 000102030405060708090a0b0c0d0eff";

Bytes Frame(const std::string& service) {
    return vcihost::BuildFrame(ParseHex(service));
}

Bytes Refusal(uint8_t code, const Bytes& packet) {
    Bytes answer = vcihost::BuildFrame(Bytes{104, 2, code, packet.at(5), packet.at(6)});
    const auto handle = vcihost::ParseRequest(packet)->handle;
    answer[10] = static_cast<uint8_t>(handle);
    return answer;
}

// A whole device; `refused` is a sid that it refuses with NO_FILE.
FakeDevice::Answers Whole(uint8_t refused = 0) {
    return [refused](const Bytes& packet) -> std::vector<Bytes> {
        if (packet.at(6) == refused) {
            return {Refusal(41, packet)};
        }
        switch (packet.at(6)) {
        case 6:
            return {Frame(kVersion)};
        case 20:
            return {Frame(kUid)};
        case 24:
            return {Frame("0118 02 0135018f" + kTime)}; // 20251023
        case 25:
            return {Frame("0119")};
        default:
            return {Frame("01" + ToHex(Bytes{packet.at(6)}) + kTime)};
        }
    };
}

ToolResult Device(const FakeDevice& device, Strings words, const ToolOptions& options = {}) {
    words.insert(words.begin(), "device");
    words.insert(words.end(), {"--device", device.path()});
    return RunTool(words, options);
}

Strings Services(const FakeDevice& device) {
    Strings services;
    for (const Bytes& packet : device.Received()) {
        services.push_back(ToHex(std::span(packet).subspan(5, packet.at(1))));
    }
    return services;
}

TEST(VcictlDevice, Info) {
    FakeDevice device(Whole());
    auto result = Device(device, {"info"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "hardware  1.2\n"
                          "kernel    1.2.0\n"
                          "software  1.2.0\n"
                          "build     2025-10-23\n"
                          "uid       000102030405060708090a0b0c0d0eff\n"
                          "time      1.234567890 s\n");
    EXPECT_EQ(Services(device), (Strings{"0106", "0118", "0114", "0112"}));
    result = Device(device, {"info", "--json"});
    EXPECT_EQ(result.out, "{\"hardware\":\"1.2\",\"kernel\":\"1.2.0\",\"software\":\"1.2.0\","
                          "\"build\":\"2025-10-23\",\"uid\":\"000102030405060708090a0b0c0d0eff\","
                          "\"device_ns\":1234567890}\n");
}

TEST(VcictlDevice, InfoWithoutAnIdentity) {
    FakeDevice device(Whole(20));
    auto result = Device(device, {"info"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("NO_FILE (41) to group 1 service 20"));
    EXPECT_THAT(result.err, HasSubstr("; the board shows no eMMC (mmcblk0)\n"));
    EXPECT_THAT(result.out, HasSubstr("uid       -\ntime      1.234567890 s\n"));
    result = Device(device, {"info", "--json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("\"uid\":null,\"device_ns\":1234567890}"));
}

TEST(VcictlDevice, InfoOfASilentAndOfAStrangeDevice) {
    FakeDevice silent(FakeDevice::Silent);
    auto result = Device(silent, {"info", "--wait", "50"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(silent.Received().size(), 1U);
    FakeDevice strange([](const Bytes& packet) {
        return std::vector<Bytes>{Frame("01" + ToHex(Bytes{packet.at(6)}) + "00")};
    });
    result = Device(strange, {"info"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("the answer has an unknown form: "));
}

TEST(VcictlDevice, Time) {
    FakeDevice device(Whole());
    EXPECT_EQ(Device(device, {"time"}).out, "device time 1.234567890 s\n");
    EXPECT_EQ(Device(device, {"time", "--json"}).out, "{\"device_ns\":1234567890}\n");
    EXPECT_EQ(Services(device).at(0), "0112");
}

TEST(VcictlDevice, Serial) {
    FakeDevice device(Whole());
    auto result = Device(device, {"serial", "0123456789", "--yes"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "serial number NV0123456789 written\n");
    EXPECT_EQ(Services(device), (Strings{"011930313233343536373839"}));
    result = Device(device, {"serial", "0123456789"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "vcictl: standard input is no terminal; confirm with --yes\n");
    for (const char* const wrong : {"012345678", "01234567890", "01234 6789"}) {
        result = Device(device, {"serial", wrong, "--yes"});
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr("is no serial number: write 10 digits or letters"));
    }
    EXPECT_EQ(device.Received().size(), 1U);
    FakeDevice without(Whole(25));
    result = Device(without, {"serial", "0123456789", "--yes"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err,
                HasSubstr("; the partition for the serial number (mmcblk0p3) does not open\n"));
}

TEST(VcictlDevice, SerialAsksOnATerminal) {
    FakeDevice device(Whole());
    const auto answer = [&](const std::string& word) {
        const std::string command = "echo " + word + " | script -qec '" + VCICTL_BINARY +
                                    " device serial 0123456789 --device " + device.path() +
                                    "' /dev/null";
        return RunTool({}, {{}, {}, {}, {"sh", "-c", command}});
    };
    auto result = answer("n");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, HasSubstr("Write serial number NV0123456789 over the one of the device "
                                      "at " +
                                      device.path() + "? [y/N] "));
    EXPECT_THAT(result.out, HasSubstr("nothing was written"));
    EXPECT_EQ(device.Received().size(), 0U);
    result = answer("y");
    EXPECT_EQ(result.status, 0) << result.out;
    EXPECT_EQ(device.Received().size(), 1U);
}

TEST(VcictlDevice, ResetWaitsUntilItAnswersAgain) {
    std::atomic<int> questions{0};
    FakeDevice device([&](const Bytes& packet) -> std::vector<Bytes> {
        if (packet.at(6) == 1) {
            return {Frame("0101" + kTime)};
        }
        // The first question comes while it is down.
        return questions++ == 0 ? std::vector<Bytes>{}
                                : std::vector<Bytes>{Frame("0112 0000000000000000")};
    });
    const auto result = Device(device, {"reset"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out,
                MatchesRegex("the board goes down, device time 1.234567890 s\n"
                             "it answers again after [0-9.]+ s, device time 0.000000000 s\n"));
    EXPECT_EQ(Services(device), (Strings{"0101", "0112", "0112"}));
}

TEST(VcictlDevice, ResetOfABoardThatStaysUpIsNoSuccess) {
    const auto up = std::chrono::steady_clock::now();
    bool busy = false; // does not answer the next question
    FakeDevice device([&](const Bytes& packet) {
        if (packet.at(6) != 1 && std::exchange(busy, false)) {
            return std::vector<Bytes>{};
        }
        const auto time = static_cast<uint64_t>(
            std::chrono::nanoseconds(std::chrono::steady_clock::now() - up).count());
        Bytes answer{1, packet.at(6)};
        for (int shift = 0; shift < 64; shift += 8) {
            answer.push_back(static_cast<uint8_t>(time >> shift));
        }
        return std::vector<Bytes>{vcihost::BuildFrame(answer)};
    });
    auto result = Device(device, {"reset", "--limit", "2s"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "vcictl: the board still answers, and has not restarted within 2.0 s\n");
    EXPECT_GT(Services(device).size(), 2U);
    busy = true;
    result = Device(device, {"reset", "--limit", "2500ms"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "vcictl: the board still answers, and has not restarted within 2.5 s\n");
}

TEST(VcictlDevice, ResetThatDoesNotComeBack) {
    FakeDevice device([](const Bytes& packet) {
        return packet.at(6) == 1 ? std::vector<Bytes>{Frame("0101" + kTime)} : std::vector<Bytes>{};
    });
    auto result = Device(device, {"reset", "--limit", "600ms"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "vcictl: the device does not answer again within 0.6 s; --limit waits "
                          "longer\n");
    result = Device(device, {"reset", "--no-wait"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "the board goes down, device time 1.234567890 s\n");
    FakeDevice refusing(
        [](const Bytes& packet) { return std::vector<Bytes>{Refusal(10, packet)}; });
    result = Device(refusing, {"reset"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
}

TEST(VcictlDevice, ClearIsAnsweredOverALinkThatIsGoneMeanwhile) {
    FakeDevice* self = nullptr;
    FakeDevice device([&](const Bytes& /*packet*/) {
        self->HangUp({Frame("0108" + kTime)});
        return std::vector<Bytes>{};
    });
    self = &device;
    const auto result = Device(device, {"clear"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("cleared and started again"));
    EXPECT_EQ(Services(device), (Strings{"0108"}));
}

TEST(VcictlDevice, ClearWaitsForTheAnswerBehindTheRestart) {
    FakeDevice device(Whole());
    auto result = Device(device, {"clear"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, MatchesRegex("cleared and started again after [0-9.]+ s, device time "
                                         "1.234567890 s\n"));
    EXPECT_EQ(Services(device), (Strings{"0108"}));
    FakeDevice silent(FakeDevice::Silent);
    result = Device(silent, {"clear", "--limit", "100ms"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr("does not answer again within 0.1 s"));
    result = Device(silent, {"clear", "--no-wait"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "clear requested\n");
    FakeDevice refusing([](const Bytes& /*packet*/) {
        return std::vector<Bytes>{Frame("68 02 0f 00 00")}; // WRONG_GID to nobody
    });
    result = Device(refusing, {"clear"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("WRONG_GID (15)"));
}

TEST(VcictlDevice, InWords) {
    const auto request = [](const std::string& service) {
        return vcihost::DescribeRequest(Frame(service)).text;
    };
    const auto message = [](const std::string& service) {
        return vcihost::DescribeMessage(Frame(service)).text;
    };
    EXPECT_EQ(request("0101"), "reset the board");
    EXPECT_EQ(request("0106"), "device version");
    EXPECT_EQ(request("0108"), "clear all configuration");
    EXPECT_EQ(request("0108 00"), "clear all configuration with an unknown payload of 1 byte");
    EXPECT_EQ(request("0112"), "device time");
    EXPECT_EQ(request("0114"), "device uid");
    EXPECT_EQ(request("0118"), "device build");
    EXPECT_EQ(request("0119 30313233343536373839"), "write the serial number: NV0123456789");
    EXPECT_EQ(request("0119 3031323334353637380a"), "write the serial number: NV012345678.");
    EXPECT_EQ(message("0101" + kTime), "the board goes down, device time 1.234567890 s");
    EXPECT_EQ(message(kVersion),
              "hardware 1.2, kernel 1.2.0, software 1.2.0, device time 1.234567890 s");
    EXPECT_EQ(message("0108" + kTime), "cleared and started again, device time 1.234567890 s");
    EXPECT_EQ(message("0112" + kTime), "device time 1.234567890 s");
    EXPECT_EQ(message(kUid), "uid 000102030405060708090a0b0c0d0eff");
    EXPECT_EQ(message("0118 02 0135018f" + kTime), "built 2025-10-23, device time 1.234567890 s");
    EXPECT_EQ(message("0119"), "done");
}

} // namespace
