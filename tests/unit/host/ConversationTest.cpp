#include "vcihost/Conversation.h"

#include "host/FakeDevice.h"

#include <fstream>

#include <gtest/gtest.h>

using namespace vcihost;
using namespace std::chrono_literals;

namespace {

const char kRequest[] = "00 02000000 1001 00000000 0000000000";
const char kTime[] = "00 0a000000 1001 d202964900000000 00000000 0000000000";
const char kDrop[] = "00 0e000000 6801 d202964900000000 01040001 00000000 0000000000";

// Conversations with a device that answers a sync request with the time, and a sync state by a
// refusal.
class ConversationTest : public testing::Test {
  protected:
    ConversationTest()
        : device(FakeDevice::Table({{kRequest, {kTime}},
                                    {"00 04000000 1004 0101 07000000 000000",
                                     {"00 05000000 6802 2d 1004 07000000 0000"}}}),
                 {}) {
        board.Write("lines", "28 out 1\n");
        board.Write("console", "got usb!\n");
    }

    Conversation::Totals Run(const std::string& text, double timeScale = 1) {
        lines.clear();
        Conversation conversation({device.path(), board.path(), board / "console", timeScale},
                                  waiter,
                                  Transcript([this](const auto& each) { lines.push_back(each); }));
        try {
            const auto totals = conversation.Run(Script::Parse(text));
            line = conversation.line();
            return totals;
        } catch (...) {
            line = conversation.line();
            throw;
        }
    }

    // What the failing step says.
    std::string ErrorOf(const std::string& text) {
        try {
            Run(text);
        } catch (const ConversationError& error) {
            return error.what();
        }
        return "none";
    }

    FakeDevice device;
    TempDir board;
    Waiter waiter;
    std::vector<std::string> lines; // of the transcript
    size_t line = 0;                // of the last step
};

TEST_F(ConversationTest, WhatIsExpectedComes) {
    const auto totals = Run("> 1001\n< 00 0a000000 10 01 ..*8 ..*9\n"
                            "> 1004 0101 @7\n< 00 05000000 68 02 2d 10 04 07000000 0000\n"
                            "silence 20\n");
    EXPECT_EQ(totals.sent, 2U);
    EXPECT_EQ(totals.expectations, 3U);
    EXPECT_EQ(line, 5U);
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "host   >  10 01                           sync request",
                  "device <  10 01 d202964900000000          device time 1.234567890 s",
                  "host   >  10 04 0101                      sync state: go up, handle 0x00000007",
                  "device <  68 02 2d1004                    refused: SET_SYNC_STATE_FAILED (45) "
                  "to group 16 service 4, handle 0x00000007",
                  "silence   20 ms                           nothing came"}));
}

TEST_F(ConversationTest, AnotherMessageIsToldWithItsMeaning) {
    EXPECT_EQ(ErrorOf("\n> 1001\n< 00 0a000000 10 02 *"),
              "the device said something else\n"
              "  expected  00 0a000000 10 02 *\n"
              "  came      000a0000001001d202964900000000000000000000000000\n"
              "            device time 1.234567890 s\n"
              "  differs   at byte 6");
    EXPECT_EQ(line, 3U);
}

TEST_F(ConversationTest, AMessageThatDoesNotComeIsTold) {
    EXPECT_EQ(ErrorOf("deadline 30\n< 00 0a*"), "no message came within 30 ms\n  expected  00 0a*");
    EXPECT_EQ(line, 2U);
}

TEST_F(ConversationTest, TheTimeScaleMultipliesTheDeadline) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(Run("deadline 20\n< *", 5), ConversationError);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 100ms);
}

TEST_F(ConversationTest, AMessageBreaksSilence) {
    EXPECT_EQ(ErrorOf("> 1001\nsilence 5000"),
              "a message came\n"
              "  expected  silence for 5000 ms\n"
              "  came      000a0000001001d202964900000000000000000000000000\n"
              "            device time 1.234567890 s");
}

TEST_F(ConversationTest, DrainDiscardsWhatWaits) {
    Run(">> 00 02000000 1001 00000000 0000000000\nwait 100\ndrain\nsilence 20");
    EXPECT_EQ(lines.at(1), "device <  10 01 d202964900000000          device time 1.234567890 s");
}

TEST_F(ConversationTest, ReopenBeginsANewLink) {
    const auto totals = Run("> 1001\n< *\nreopen\n> 1001\n< *\n");
    EXPECT_EQ(totals.expectations, 2U);
    EXPECT_EQ(device.Received().size(), 2U);
}

TEST_F(ConversationTest, SetWritesAControlFile) {
    Run("set lines 28 in 0");
    EXPECT_EQ(board.Read("lines"), "28 in 0\n");
    EXPECT_EQ(lines, std::vector<std::string>{"set       lines 28 in 0"});
    EXPECT_EQ(ErrorOf("set no/file 1"),
              "cannot open " + (board / "no/file") + ": No such file or directory");
}

TEST_F(ConversationTest, ExpectWaitsForALineOfAControlFile) {
    EXPECT_EQ(Run("expect lines 28 out [01]").expectations, 1U);
    std::thread later([this] {
        std::this_thread::sleep_for(60ms);
        board.Write("lines", "28 out 0\n");
    });
    EXPECT_EQ(Run("deadline 10000\nexpect lines 28 out 0").expectations, 1U);
    later.join();
}

TEST_F(ConversationTest, ALineThatAControlFileDoesNotHaveIsToldWithWhatItHas) {
    board.Write("lines", "27 out 0\n28 out 1\n");
    EXPECT_EQ(ErrorOf("deadline 30\nexpect lines 28 out 0"),
              "lines did not show the line within 30 ms\n"
              "  expected  28 out 0\n"
              "  found\n"
              "    27 out 0\n"
              "    28 out 1");
    EXPECT_EQ(ErrorOf("deadline 0\nexpect nothing x"), "nothing did not show the line within 0 ms\n"
                                                       "  expected  x\n"
                                                       "  found\n"
                                                       "    cannot open " +
                                                           (board / "nothing") +
                                                           ": No such file or directory");
}

TEST_F(ConversationTest, ConsoleFindsNewTextOnly) {
    EXPECT_EQ(ErrorOf("deadline 30\nconsole got usb!"),
              "the console did not show the text within 30 ms\n"
              "  expected  got usb!\n"
              "  showed\n"
              "    ");
    EXPECT_EQ(Run("rewind\nconsole got usb!").expectations, 1U);
    EXPECT_EQ(
        Run("run echo ready to exit! >> '" + (board / "console") + "'\nconsole ready to exit!")
            .expectations,
        2U);
}

TEST_F(ConversationTest, RunShowsWhatACommandWrote) {
    EXPECT_EQ(Run("run echo one; echo two").expectations, 1U);
    EXPECT_EQ(lines, (std::vector<std::string>{"run       echo one; echo two", "          one",
                                               "          two"}));
    EXPECT_EQ(ErrorOf("run echo bad; exit 4"),
              "the command ended with status 4\n  command   echo bad; exit 4\n  wrote\n    bad");
}

TEST_F(ConversationTest, UploadsAreMessagesLikeOthers) {
    FakeDevice dropping(FakeDevice::Silent, {ParseHex(kDrop)});
    Conversation conversation({dropping.path(), "", "", 1}, waiter, Transcript({}));
    EXPECT_EQ(conversation.Run(Script::Parse("< 00 0e000000 6801 ..*8 01040001 *")).expectations,
              1U);
}

TEST_F(ConversationTest, AnInterruptEndsAWait) {
    const UniqueFd cancel(eventfd(1, EFD_CLOEXEC));
    waiter = Waiter(cancel.get());
    EXPECT_THROW(Run("wait 60000"), Interrupted);
}

TEST_F(ConversationTest, AMissingDeviceIsATransportError) {
    EXPECT_THROW(Conversation({"/dev/no-such-device", "", "", 1}, waiter, Transcript({})),
                 TransportError);
}

} // namespace
