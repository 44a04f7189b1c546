#include "host/FakeDevice.h"
#include "host/Tool.h"

#include <sys/ioctl.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::StartsWith;
using vcihost::Bytes;
using vcihost::ParseHex;
using vcihost::ToHex;

namespace {

const char kRequest[] = "00 02000000 1001 44332211 0000000000";
const char kTime[] = "000a0000001001d202964900000000000000000000000000";
const char kDrop[] = "000e0000006801d2029649000000000104000100000000"
                     "0000000000";

TEST(VcictlRaw, PrintsTheAnswerInHexAndNothingElse) {
    FakeDevice device(FakeDevice::Table({{kRequest, {kTime}}}));
    const auto result =
        RunTool({"raw", "1001", "--handle", "0x11223344", "--device", device.path()});
    EXPECT_EQ(result.out, std::string(kTime) + "\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(device.Received().size(), 1U);
    EXPECT_EQ(ToHex(device.Received()[0]), "00020000001001443322110000000000");
}

TEST(VcictlRaw, HexMayComeInPiecesAndAHandleInDecimal) {
    FakeDevice device([](const Bytes& packet) { return std::vector<Bytes>{packet}; });
    const auto result =
        RunTool({"--device", device.path(), "raw", "10", "03 0A", "--handle", "258", "fF"});
    EXPECT_EQ(result.out, "000400000010030aff02010000000000\n");
    EXPECT_EQ(result.status, 0);
}

TEST(VcictlRaw, TheDeviceMayBeNamedByTheEnvironment) {
    FakeDevice device([](const Bytes& packet) { return std::vector<Bytes>{packet}; });
    const auto result =
        RunTool({"raw", "1001"}, {.environment = {"VCICTL_DEVICE=" + device.path()}});
    EXPECT_EQ(result.out, "00020000001001000000000000000000\n");
}

TEST(VcictlRaw, ReadsLongHexFromStandardInput) {
    FakeDevice device([](const Bytes&) { return std::vector<Bytes>{{1}}; });
    const auto result = RunTool({"raw", "-", "--device", device.path()},
                                {.input = "10\n" + std::string(2 * 66000, '0') + "\n"});
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(device.Received().size(), 1U);
    const Bytes frame = device.Received()[0];
    EXPECT_EQ(frame.size(), 66012U);
    EXPECT_EQ(ToHex(std::span(frame).first(7)), "00d10101001000");
}

TEST(VcictlRaw, StopsAfterOneMessageUnlessTold) {
    const std::vector<std::string> answers = {"01", "02", "03"};
    FakeDevice device(FakeDevice::Table({{kRequest, answers}}));
    const std::vector<std::string> command = {"raw",        "1001",     "--handle",
                                              "0x11223344", "--device", device.path()};
    EXPECT_EQ(RunTool(command).out, "01\n");
    auto two = command;
    two.insert(two.end(), {"--count", "2"});
    EXPECT_EQ(RunTool(two).out, "01\n02\n");
    auto all = command;
    all.insert(all.end(), {"--count", "0", "--wait", "300"});
    const auto result = RunTool(all);
    EXPECT_EQ(result.out, "01\n02\n03\n");
    EXPECT_EQ(result.status, 0);
}

TEST(VcictlRaw, NothingInTimeIsStatus3) {
    FakeDevice device(FakeDevice::Silent);
    const auto start = std::chrono::steady_clock::now();
    const auto result = RunTool({"raw", "1001", "--wait", "50", "--device", device.path()});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
}

TEST(VcictlRaw, PrintsWhatWaitedBeforeUnlessDrained) {
    // A relay that holds back the answer until it has been asked, and an upload that waits.
    FakeDevice device(FakeDevice::Table({{kRequest, {kTime}}}), {ParseHex(kDrop)});
    EXPECT_EQ(RunTool({"raw", "1001", "--handle", "0x11223344", "--count", "2", "--wait", "5000",
                       "--device", device.path()})
                  .out,
              std::string(kDrop) + "\n" + kTime + "\n");
}

TEST(VcictlFrame, SendsBytesAsTheyStand) {
    FakeDevice device(FakeDevice::Table({{"000102", {"000500000068020a0000000000000000"}}}));
    const auto result = RunTool({"frame", "00", "0102", "--device", device.path()});
    EXPECT_EQ(result.out, "000500000068020a0000000000000000\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(device.Received(), (std::vector<Bytes>{{0, 1, 2}}));
}

TEST(VcictlFrame, MessagesOfEveryShortLengthArePrinted) {
    std::vector<Bytes> messages;
    std::string lines;
    for (size_t size = 1; size < 16; ++size) {
        messages.emplace_back(size, 0xFF);
        lines += ToHex(messages.back()) + "\n";
    }
    FakeDevice device([&](const Bytes&) { return messages; });
    EXPECT_EQ(RunTool({"frame", "00", "--count", "15", "--device", device.path()}).out, lines);
}

// One clear line on standard error, nothing on standard output, status 2.
void ExpectTrouble(const std::vector<std::string>& arguments, const std::string& line,
                   const ToolOptions& options = {}) {
    const auto result = RunTool(arguments, options);
    EXPECT_EQ(result.status, 2) << line;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, line + "\n");
}

TEST(VcictlTrouble, WrongHex) {
    ExpectTrouble({"raw", "100"}, "vcictl: HEX: odd number of hex digits: the byte at character 3 "
                                  "has only one digit");
    ExpectTrouble({"frame", "10g0"}, "vcictl: HEX: character 3 ('g') is not a hex digit");
    ExpectTrouble({"raw", "0x1001"}, "vcictl: HEX: character 2 ('x') is not a hex digit");
    ExpectTrouble({"raw", ""}, "vcictl: HEX is empty: give at least one byte");
    ExpectTrouble({"raw", "10", "0"}, "vcictl: HEX: odd number of hex digits: the byte at "
                                      "character 4 has only one digit");
}

TEST(VcictlTrouble, WrongNumbers) {
    ExpectTrouble({"raw", "1001", "--handle", "0x100000000"},
                  "vcictl: --handle: '0x100000000' is no whole number from 0 to 4294967295; see "
                  "vcictl --help");
    ExpectTrouble({"raw", "1001", "--wait", "soon"},
                  "vcictl: --wait: 'soon' is no whole number from 0 to 4294967295; see vcictl "
                  "--help");
    ExpectTrouble({"frame", "1001", "--count", "-1"},
                  "vcictl: --count: '-1' is no whole number from 0 to 18446744073709551615; see "
                  "vcictl --help");
}

TEST(VcictlTrouble, WrongUsage) {
    ExpectTrouble({}, "vcictl: A subcommand is required; see vcictl --help");
    ExpectTrouble({"raw"}, "vcictl: HEX is required; see vcictl --help");
    ExpectTrouble({"frame", "00", "--handle", "1"},
                  "vcictl: The following argument was not expected: --handle; see vcictl --help");
}

TEST(VcictlTrouble, AMissingDevice) {
    ExpectTrouble({"raw", "1001", "--device", "/dev/no-such-device"},
                  "vcictl: cannot open /dev/no-such-device: No such file or directory; connect the "
                  "device, or name another path with --device");
}

TEST(VcictlTrouble, ADeviceThatIsNone) {
    const TempDir dir;
    dir.Write("file", "");
    ExpectTrouble({"raw", "1001", "--device", dir / "file"},
                  "vcictl: cannot open " + (dir / "file") +
                      ": neither a character device nor a socket");
}

TEST(VcictlTrouble, ABusyDevice) {
    // A terminal in exclusive mode is a device with one opener; root would pass, so root's program
    // goes without that power.
    const UniqueFd other(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    grantpt(other.get());
    unlockpt(other.get());
    char name[64];
    ASSERT_EQ(ptsname_r(other.get(), name, sizeof(name)), 0);
    const UniqueFd opener(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_EQ(ioctl(opener.get(), TIOCEXCL), 0);
    std::vector<std::string> prefix;
    if (geteuid() == 0) {
        prefix = {"setpriv", "--bounding-set=-sys_admin"};
    }
    ExpectTrouble({"raw", "1001", "--device", name},
                  std::string("vcictl: cannot open ") + name +
                      ": Device or resource busy; another program has it open: end that one first",
                  {.prefix = prefix});
}

TEST(VcictlTrouble, ALinkThatBreaks) {
    auto device = std::make_unique<FakeDevice>(FakeDevice::Table({{"00", {"01"}}}));
    const std::string path = device->path();
    Tool tool({"frame", "00", "--count", "0", "--wait", "60000", "--device", path});
    ASSERT_TRUE(tool.WaitForOut("01\n"));
    device.reset();
    const auto result = tool.Finish();
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "vcictl: " + path + " was closed by the device\n");
}

TEST(VcictlOutput, EachLineIsThereAtOnceAndAnInterruptEndsCleanly) {
    FakeDevice device(FakeDevice::Table({{"00", {"01"}}}));
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Tool tool({"frame", "00", "--count", "0", "--wait", "60000", "--device", device.path()});
        EXPECT_TRUE(tool.WaitForOut("01\n"));
        tool.Signal(signal);
        const auto result = tool.Finish();
        EXPECT_EQ(result.status, -signal);
        EXPECT_EQ(result.out, "01\n");
        EXPECT_EQ(result.err, "");
    }
}

TEST(VcictlOutput, ADeviceThatNeverStopsIsInterruptedAllTheSame) {
    FakeDevice device([&](const Bytes&) { return std::vector<Bytes>(200'000, Bytes{1}); });
    Tool tool({"frame", "00", "--count", "0", "--wait", "60000", "--device", device.path()});
    EXPECT_TRUE(tool.WaitForOut("01\n01\n01\n"));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Finish().status, -SIGINT);
}

TEST(VcictlOutput, AFullDiskIsTold) {
    FakeDevice device(FakeDevice::Table({{"00", {"01"}}}));
    const auto result =
        RunTool({"frame", "00", "--device", device.path()}, {.output = "/dev/full"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "vcictl: cannot write to standard output: No space left on device\n");
}

TEST(VcictlOutput, AReaderThatHasGoneEndsIt) {
    FakeDevice device(FakeDevice::Table({{"00", {"01"}}}));
    const TempDir dir;
    const std::string pipe = dir / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    UniqueFd reader(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    Tool tool({"frame", "00", "--count", "0", "--wait", "60000", "--device", device.path()},
              {.output = pipe});
    pollfd line{reader.get(), POLLIN, 0};
    ASSERT_EQ(poll(&line, 1, 10000), 1);
    reader.reset();
    device.Say({2});
    EXPECT_EQ(tool.Finish().status, -SIGPIPE);
}

TEST(VcictlHelp, EveryCommandHasHelpWithExamples) {
    const std::vector<std::vector<std::string>> commands = {{},
                                                            {"raw"},
                                                            {"frame"},
                                                            {"time"},
                                                            {"sync"},
                                                            {"talk"},
                                                            {"decode"},
                                                            {"sync", "node"},
                                                            {"sync", "up"},
                                                            {"sync", "down"},
                                                            {"sync", "watch"},
                                                            {"sync", "request"},
                                                            {"sync", "followup"},
                                                            {"can"},
                                                            {"can", "set"},
                                                            {"can", "open"},
                                                            {"can", "close"},
                                                            {"can", "mode"},
                                                            {"can", "ssp"},
                                                            {"can", "term"},
                                                            {"can", "send"},
                                                            {"can", "cyclic"},
                                                            {"can", "plan"}};
    for (auto command : commands) {
        const std::string name = command.empty() ? "vcictl" : command.back();
        command.emplace_back("--help");
        const auto result = RunTool(command);
        EXPECT_EQ(result.status, 0) << name;
        EXPECT_EQ(result.err, "") << name;
        EXPECT_NE(result.out.find("Example"), std::string::npos) << name;
        EXPECT_NE(result.out.find("Usage: vcictl"), std::string::npos) << name;
    }
}

TEST(VcictlHelp, TellsItsVersion) {
    const auto result = RunTool({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, StartsWith("vcictl "));
    EXPECT_THAT(result.out, EndsWith("\n"));
}

} // namespace
