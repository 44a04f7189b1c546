#include "vcihost/Script.h"

#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

template <typename T> T Only(std::string_view text) {
    const Script script = Script::Parse(text);
    EXPECT_EQ(script.steps.size(), 1U);
    return std::get<T>(script.steps.at(0).action);
}

// "line: text" of the error.
std::string ErrorOf(std::string_view text) {
    try {
        Script::Parse(text);
    } catch (const ScriptError& error) {
        return std::to_string(error.line()) + ": " + error.what();
    }
    return "none";
}

TEST(Script, AServiceSectionIsFramed) {
    const auto send = Only<step::Send>("> 10 01 @0x11223344");
    EXPECT_TRUE(send.framed);
    EXPECT_EQ(ToHex(send.bytes), "00020000001001443322110000000000");
    EXPECT_EQ(ToHex(Only<step::Send>(">1001").bytes), "00020000001001000000000000000000");
    EXPECT_EQ(ToHex(Only<step::Send>("> 1001 @ 258  # why").bytes),
              "00020000001001020100000000000000");
}

TEST(Script, RawBytesStandAsTheyAre) {
    const auto send = Only<step::Send>(">> 00 01 02 # three bytes");
    EXPECT_FALSE(send.framed);
    EXPECT_EQ(ToHex(send.bytes), "000102");
    EXPECT_EQ(Only<step::Send>(">> 00 f5ffffff 10*65999").bytes.size(), 66004U);
}

TEST(Script, APatternKeepsItsText) {
    const auto receive = Only<step::Receive>("< 00 ..*4 10* # any");
    EXPECT_EQ(receive.text, "00 ..*4 10*");
    EXPECT_FALSE(receive.pattern.Mismatch(ParseHex("000a000000100102")));
}

TEST(Script, TimesAreMilliseconds) {
    EXPECT_EQ(Only<step::Silence>("silence 50").time, 50ms);
    EXPECT_EQ(Only<step::Wait>("wait 0x10").time, 16ms);
    EXPECT_EQ(Only<step::SetDeadline>("deadline 86400000").time, 24h);
}

TEST(Script, ControlFilesHaveAValueOrALine) {
    const auto set = Only<step::Set>("set gpio/chip1/lines 28  1 ");
    EXPECT_EQ(set.file, "gpio/chip1/lines");
    EXPECT_EQ(set.value, "28  1");
    EXPECT_EQ(Only<step::Set>("set log").value, "");
    const auto expect = Only<step::Expect>("expect gpio/lines 28 out # *");
    EXPECT_EQ(expect.file, "gpio/lines");
    EXPECT_EQ(expect.line, "28 out # *");
}

TEST(Script, TextsAreTakenWhole) {
    EXPECT_EQ(Only<step::Console>("console got usb!  # 1").text, "got usb!  # 1");
    EXPECT_EQ(Only<step::Run>("run test -e /a && echo \"b # c\"").command,
              "test -e /a && echo \"b # c\"");
    EXPECT_EQ(Only<step::Say>("say The host asks.").text, "The host asks.");
    Only<step::Rewind>("rewind");
    Only<step::Drain>("drain");
    Only<step::Reopen>("reopen");
}

TEST(Script, CommentsAndEmptyLinesAreNoSteps) {
    const Script script = Script::Parse("# first\n\n   \t\n  # second\n> 1001\r\n\nwait 1");
    ASSERT_EQ(script.steps.size(), 2U);
    EXPECT_EQ(script.steps[0].line, 5U);
    EXPECT_EQ(script.steps[1].line, 7U);
    EXPECT_TRUE(Script::Parse("").steps.empty());
}

TEST(Script, ErrorsTellLineAndReason) {
    EXPECT_EQ(ErrorOf("wait 1\nsend 1001"),
              "2: 'send' is no step; a line begins with one of: > >> < silence wait deadline set "
              "expect console rewind run say drain reopen, or #");
    EXPECT_EQ(ErrorOf("> 100"), "1: character 3: '0' is no byte of two hex digits");
    EXPECT_EQ(ErrorOf("> 10.."), "1: what is sent must be told whole, without .. and *");
    EXPECT_EQ(ErrorOf(">"), "1: there are no bytes to send");
    EXPECT_EQ(ErrorOf(">> # none"), "1: there are no bytes to send");
    EXPECT_EQ(ErrorOf("> 1001 @0x100000000"),
              "1: the handle behind @ is no 32-bit number, decimal or 0x");
    EXPECT_EQ(ErrorOf("<"), "1: a pattern must follow <; a lone * takes any message");
    EXPECT_EQ(ErrorOf("wait soon"), "1: 'soon' is no number of milliseconds up to a day");
    EXPECT_EQ(ErrorOf("wait"), "1: '' is no number of milliseconds up to a day");
    EXPECT_EQ(ErrorOf("wait 86400001"), "1: '86400001' is no number of milliseconds up to a day");
    EXPECT_EQ(ErrorOf("set"), "1: the name of a file in the control directory must follow");
    EXPECT_EQ(ErrorOf("expect lines"), "1: the line that the file is to have must follow");
    EXPECT_EQ(ErrorOf("console"), "1: the text that the console is to show must follow");
    EXPECT_EQ(ErrorOf("run"), "1: a shell command must follow");
    EXPECT_EQ(ErrorOf("drain all"), "1: nothing may follow, but there is 'all'");
}

TEST(Script, ControlFilesStayInTheirDirectory) {
    for (const char* text : {"set /etc/passwd 1", "set ../x 1", "expect a/../../b c"}) {
        EXPECT_EQ(ErrorOf(text), "1: the name of a file in the control directory must follow")
            << text;
    }
}

TEST(Script, TellsWhichStepsNeedABoard) {
    const Script plain = Script::Parse("> 1001\nrun true");
    EXPECT_EQ(plain.FirstControlLine(), 0U);
    EXPECT_EQ(plain.FirstConsoleLine(), 0U);
    const Script board = Script::Parse("wait 1\nexpect a b\nset a b\nconsole x");
    EXPECT_EQ(board.FirstControlLine(), 2U);
    EXPECT_EQ(board.FirstConsoleLine(), 4U);
}

} // namespace
