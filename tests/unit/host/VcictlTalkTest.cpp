#include "host/FakeDevice.h"
#include "host/Tool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using vcihost::Bytes;
using vcihost::ParseHex;

namespace {

class VcictlTalk : public testing::Test {
  protected:
    VcictlTalk()
        : device(FakeDevice::Table({{"00 02000000 1001 00000000 0000000000",
                                     {"00 0a000000 1001 d202964900000000 00000000 0000000000"}},
                                    {"00 02000000 1963 05000000 0000000000",
                                     {"00 05000000 6802 0f 0000 00000000 0000"}}})) {}

    ToolResult Talk(const std::string& text, const std::vector<std::string>& more = {},
                    const ToolOptions& options = {}) {
        dir.Write("file", text);
        std::vector<std::string> command = {"talk", dir / "file", "--device", device.path()};
        command.insert(command.end(), more.begin(), more.end());
        return RunTool(command, options);
    }

    FakeDevice device;
    TempDir dir;
};

TEST_F(VcictlTalk, SaysNothingWhenAllIsWell) {
    const auto result = Talk("say Hello.\n> 1001\n< 00 0a000000 10 01 *\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

TEST_F(VcictlTalk, WritesATranscriptWhenAsked) {
    const auto result = Talk("say The host asks for the time.\n> 1001\n< 00 0a000000 10 01 *\n"
                             "say An unknown group is refused by name.\n"
                             "> 1963 @5\n< 00 05000000 68 02 0f *\n",
                             {"-v"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(
        result.out,
        "The host asks for the time.\n"
        "host   >  10 01                           sync request\n"
        "device <  10 01 d202964900000000          device time 1.234567890 s\n"
        "\n"
        "An unknown group is refused by name.\n"
        "host   >  19 63                           group 25 service 99, handle 0x00000005\n"
        "device <  68 02 0f0000                    refused: WRONG_GID (15) to group 0 service "
        "0, handle 0x00000000\n"
        "\n"
        "ok: 2 sent, 2 expectations met\n");
}

TEST_F(VcictlTalk, AMismatchTellsFileAndLineBehindTheTranscriptSoFar) {
    const auto result = Talk("# time\n> 1001\n< 00 0a000000 10 02 *\n> 1963\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "host   >  10 01                           sync request\n"
                          "device <  10 01 d202964900000000          device time 1.234567890 s\n" +
                              (dir / "file") +
                              ":3: the device said something else\n"
                              "  expected  00 0a000000 10 02 *\n"
                              "  came      000a0000001001d202964900000000000000000000000000\n"
                              "            device time 1.234567890 s\n"
                              "  differs   at byte 6\n");
    EXPECT_EQ(device.Received().size(), 1U); // nothing is sent behind a failure
}

TEST_F(VcictlTalk, NothingInTimeIsAMismatch) {
    const auto result = Talk("deadline 20\n< *\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, (dir / "file") + ":2: no message came within 20 ms\n  expected  *\n");
}

TEST_F(VcictlTalk, TheTimeScaleComesFromTheEnvironment) {
    const auto result = Talk("deadline 10\n< *\n", {}, {.environment = {"VCI_TIME_SCALE=2.5"}});
    EXPECT_THAT(result.err, HasSubstr(":2: no message came within 25 ms"));
    for (const char* scale : {"0", "-1", "fast", "2x", "nan", "1001"}) {
        const auto wrong =
            Talk("> 1001\n", {}, {.environment = {std::string("VCI_TIME_SCALE=") + scale}});
        EXPECT_EQ(wrong.status, 2) << scale;
        EXPECT_EQ(wrong.err, std::string("vcictl: VCI_TIME_SCALE is '") + scale +
                                 "', which is no number above 0 and up to 1000\n");
    }
}

TEST_F(VcictlTalk, AWrongLineIsStatus2AndNothingIsSent) {
    const auto result = Talk("> 1001\n< 1\n");
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err,
              "vcictl: " + (dir / "file") + ":2: character 1: '1' is no byte of two hex digits\n");
    EXPECT_TRUE(device.Received().empty());
}

TEST_F(VcictlTalk, StepsOfTheBoardNeedItsFiles) {
    EXPECT_EQ(Talk("wait 0\nset a 1\n").err,
              "vcictl: " + (dir / "file") + ":2: this step needs --control DIR\n");
    EXPECT_EQ(Talk("console x\n").err,
              "vcictl: " + (dir / "file") + ":1: this step needs --console FILE\n");
    EXPECT_EQ(Talk("console x\n").status, 2);
}

TEST_F(VcictlTalk, FilesOfTheBoardComeFromOptionsOrTheEnvironment) {
    dir.Write("lines", "28 out 0\n");
    dir.Write("console", "got usb!\n");
    const std::string script = "expect lines 28 out 0\nrewind\nconsole got usb!\n";
    EXPECT_EQ(Talk(script, {"--control", dir.path(), "--console", dir / "console"}).status, 0);
    EXPECT_EQ(Talk(script, {},
                   {.environment = {"VBOARD_CONTROL=" + dir.path(),
                                    "VBOARD_CONSOLE=" + (dir / "console")}})
                  .status,
              0);
}

TEST_F(VcictlTalk, ReadsStandardInput) {
    const auto result =
        RunTool({"talk", "-", "--device", device.path()}, {.input = "> 1001\n< 00 0b *\n"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("standard input:2: "));
}

TEST_F(VcictlTalk, AFileThatCannotBeReadIsStatus2) {
    const auto missing = RunTool({"talk", dir / "none", "--device", device.path()});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err,
              "vcictl: cannot read " + (dir / "none") + ": No such file or directory\n");
    const auto directory = RunTool({"talk", dir.path(), "--device", device.path()});
    EXPECT_EQ(directory.status, 2);
    EXPECT_EQ(directory.err, "vcictl: cannot read " + dir.path() + ": Is a directory\n");
}

TEST_F(VcictlTalk, ABrokenLinkIsStatus2WithTheLine) {
    const auto result =
        RunTool({"talk", "-", "--device", "/dev/no-such-device"}, {.input = "> 1001\n"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("vcictl: cannot open /dev/no-such-device: "));
}

TEST_F(VcictlTalk, AnInterruptEndsItBySignal) {
    dir.Write("file", "run echo begun\nwait 60000\n");
    Tool tool({"talk", "-v", dir / "file", "--device", device.path()});
    ASSERT_TRUE(tool.WaitForOut("begun"));
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Finish().status, -SIGINT);
}

} // namespace
