#include "vcihost/Transcript.h"

#include "vcihost/Frame.h"

#include <vector>

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

class TranscriptTest : public testing::Test {
  protected:
    std::vector<std::string> lines;
    Transcript transcript{[this](const std::string& line) { lines.push_back(line); }};
};

TEST_F(TranscriptTest, FramesAreShownAsServiceSectionAndMeaning) {
    transcript.HostFrame(BuildFrame(ParseHex("1001"), 0x11223344));
    transcript.Device(ParseHex("00 0a000000 1001 d202964900000000 00000000 0000000000"));
    transcript.Device(ParseHex("00 05000000 6802 0f 00 00 00000000 0000"));
    transcript.Device(ParseHex("00 0e000000 6801 d202964900000000 01040001 00000000 0000000000"));
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "host   >  10 01                           sync request, handle 0x11223344",
                  "device <  10 01 d202964900000000          device time 1.234567890 s",
                  "device <  68 02 0f0000                    refused: WRONG_GID (15) to group 0 "
                  "service 0, handle 0x00000000",
                  "device <  68 01 d20296490000000001040001  sync line dropped at 1.234567890 s"}));
}

TEST_F(TranscriptTest, BytesThatAreNoFrameAreShownWhole) {
    transcript.HostBytes(ParseHex("000102"));
    transcript.Device(ParseHex("ff"));
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "host  >>  000102                          malformed: too short, 3 of at "
                         "least 16 bytes",
                         "device <  ff                              malformed: too short, 1 of at "
                         "least 16 bytes"}));
}

TEST_F(TranscriptTest, LongBytesAreCutAndTheirLengthTold) {
    transcript.HostFrame(BuildFrame(Bytes(66001)));
    transcript.HostBytes(Bytes(40, 0xAB));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "host   >  00 00 0000000000.. 66001 bytes  group 0 service 0, payload of "
                        "65999 bytes");
    EXPECT_EQ(lines[1].substr(0, 39), "host  >>  ababababababababab.. 40 bytes");
}

TEST_F(TranscriptTest, AFrameWithoutGidAndSidIsShownAsBytes) {
    transcript.HostFrame(BuildFrame(ParseHex("10")));
    EXPECT_EQ(lines.at(0).substr(0, 34), "host  >>  000100000010000000000000");
}

TEST_F(TranscriptTest, NotesQuotesAndTheNarrator) {
    transcript.Say("First.");
    transcript.Note("set", "sync/drop 1");
    transcript.Quote("one\ntwo\n");
    transcript.Say("Second.");
    EXPECT_EQ(lines, (std::vector<std::string>{"First.", "set       sync/drop 1", "          one",
                                               "          two", "", "Second."}));
}

TEST(Transcript, WithoutASinkNothingIsWritten) {
    Transcript silent({});
    silent.Say("x");
    silent.HostBytes(Bytes{1});
    silent.Device(Bytes{1});
    silent.Quote("x");
}

} // namespace
