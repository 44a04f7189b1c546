#include "vcihost/Describe.h"
#include "vcihost/Frame.h"

#include <gtest/gtest.h>

using namespace vcihost;

namespace {

std::string Request(std::string_view service) {
    return DescribeRequest(BuildFrame(ParseHex(service))).text;
}
std::string Message(std::string_view service) {
    return DescribeMessage(BuildFrame(ParseHex(service))).text;
}

TEST(DescribeLin, ChannelAndRole) {
    EXPECT_EQ(Request("06 0a 00 01 004b 02 00"),
              "lin channel: lin0, open, 19200 bit/s, LIN 2.1, internal supply");
    EXPECT_EQ(Request("06 0a 01 01 8025 04 01"),
              "lin channel: lin1, open, 9600 bit/s, LIN j2602, external supply");
    EXPECT_EQ(Request("06 0a 00 01 004b 05 02"),
              "lin channel: lin0, open, 19200 bit/s, version 5 (none), 2 (no choice) supply");
    EXPECT_EQ(Request("06 0a 00 00 0000 00 00"), "lin channel: lin0, close");
    EXPECT_EQ(Request("06 0a 02 02 0000 00 00"),
              "lin channel: channel 2 (no LIN channel), 2 (no choice)");
    EXPECT_EQ(Request("06 02 00 00"), "lin role: lin0, responder");
    EXPECT_EQ(Request("06 02 01 07"), "lin role: lin1, commander");
}

TEST(DescribeLin, TableAndResponses) {
    EXPECT_EQ(Request("06 01 00 02 10 02 0a00 40 08 ffff"),
              "lin schedule table: lin0, 10 [2] 10 ms, 40 (no identifier) [8] 65535 ms");
    EXPECT_EQ(Request("06 01 00 00"), "lin schedule table: lin0, nothing");
    EXPECT_EQ(Request("06 03 01 02 10 02 1122000000000000 3f 09 0102030405060708"),
              "lin response: lin1, 10#1122, 3F#0102030405060708 (length 9)");
    EXPECT_EQ(Request("06 04 00 02 10 3f"), "delete lin response: lin0, 10, 3F");
    EXPECT_EQ(Request("06 05 00 00"), "clear lin: lin0, the table");
    EXPECT_EQ(Request("06 05 00 01"), "clear lin: lin0, the responses");
    EXPECT_EQ(Request("06 05 00 02"), "clear lin: lin0, the table and the responses");
    EXPECT_EQ(Request("06 05 00 03"), "clear lin: lin0, 3 (nothing)");
    EXPECT_EQ(Request("06 06 00 01"), "lin schedule: lin0, run");
    EXPECT_EQ(Request("06 06 01 00"), "lin schedule: lin1, stop");
    EXPECT_EQ(Request("06 06 01 02"), "lin schedule: lin1, 2 (no choice)");
}

TEST(DescribeLin, SingleFrames) {
    EXPECT_EQ(Request("06 07 00 01 00 02 55 00 50 0d 01 1122000000000000 000102030405060708 "
                      "004b0000 00000000"),
              "lin send: lin0, 10#1122, PID 50, sync 55, break 13 + 1, inter-byte 0, spaces 00 01 "
              "02 03 04 05 06 07 08, bit rates 19200 0");
    EXPECT_EQ(Request("06 07 01 00 00 04 55 3f fd 0d 01 0000000000000000 000000000000000000 "
                      "00000000 00000000"),
              "lin send: lin1, 3D#R4, PID FD, sync 55, break 13 + 1, inter-byte 63, spaces 00 00 "
              "00 00 00 00 00 00 00, bit rates 0 0");
}

TEST(DescribeLin, SleepWakeAndFaults) {
    EXPECT_EQ(Request("06 08 00 00 00 00 0000 0000 00"), "lin sleep: lin0, sleep");
    EXPECT_EQ(Request("06 08 01 00 01 03 9600 0201 00"),
              "lin sleep: lin1, wake up, 3 times, interval 150, length 258");
    EXPECT_EQ(Request("06 08 01 00 02 00 0000 0000 00"), "lin sleep: lin1, 2 (no choice)");
    EXPECT_EQ(Request("06 09 01 01 01 10 02 03 04 05 01 0201"),
              "lin disturb: lin1, on, 10, type 2, length 3, offset 4, field 5, 258 times");
    EXPECT_EQ(Request("06 09 00 00 00 00 00 00 00 00 00 0000"),
              "lin disturb: lin0, off, all identifiers, type 0, length 0, offset 0, field 0, "
              "without limit");
}

TEST(DescribeLin, RequestsOfOtherLengthsAreNotRead) {
    for (const char* const whole :
         {"06 01 00 01 10 02 0a00", "06 02 00 01", "06 03 00 01 10 02 1122000000000000",
          "06 04 00 01 10", "06 05 00 01", "06 06 00 01",
          "06 07 00 01 00 02 55 00 50 0d 01 1122000000000000 000000000000000000 00000000 00000000",
          "06 08 00 00 00 00 0000 0000 00", "06 09 00 00 00 00 00 00 00 00 00 0000",
          "06 0a 00 01 004b 02 00"}) {
        Bytes service = ParseHex(whole);
        EXPECT_EQ(DescribeRequest(BuildFrame(service)).text.find("unknown"), std::string::npos);
        for (size_t size = 2; size < service.size(); ++size) {
            EXPECT_NE(DescribeRequest(BuildFrame(std::span(service).first(size)))
                          .text.find("with an unknown payload of"),
                      std::string::npos)
                << whole << " cut to " << size;
        }
        service.push_back(0);
        EXPECT_NE(DescribeRequest(BuildFrame(service)).text.find("with an unknown payload of"),
                  std::string::npos)
            << whole;
    }
}

TEST(DescribeLin, Answers) {
    EXPECT_EQ(Message("06 01"), "done");
    EXPECT_EQ(Message("06 0a"), "done");
    EXPECT_EQ(DescribeMessage(BuildFrame(ParseHex("06 0a"))).kind, "answer");
    EXPECT_EQ(Message("06 0a 00"), "lin channel with an unknown payload of 1 byte");
}

TEST(DescribeLin, RecordSwitch) {
    EXPECT_EQ(Request("09 0c 01 00 01"), "lin record switch: lin0, on");
    EXPECT_EQ(Request("09 0c 02 01 00 02 01"),
              "lin record switch: lin1, off, channel 2 (no LIN channel), on");
    EXPECT_EQ(Request("09 0c 00"), "lin record switch: nothing");
    EXPECT_EQ(Message("09 0c d202964900000000"), "done, device time 1.234567890 s");
}

TEST(DescribeLin, Records) {
    Bytes frame = ParseHex("09 1a 00 50 d202964900000000 92c9c34900000000 03 0100 01 02 "
                           "1122000000000000 7c 7c");
    frame.resize(103);
    const auto described = DescribeMessage(BuildFrame(frame));
    EXPECT_EQ(described.text, "lin0 rx 10# at 1.234567890 s: no response");
    EXPECT_EQ(described.kind, "upload");
    EXPECT_EQ(std::get<uint64_t>(described.fields.at(3).value), 1237567890U);
    frame[20] = 2;
    frame[21] = 0;
    frame[23] = 0;
    EXPECT_EQ(DescribeMessage(BuildFrame(frame)).text, "lin0 tx 10#1122 at 1.234567890 s");
    frame.pop_back();
    EXPECT_EQ(DescribeMessage(BuildFrame(frame)).text,
              "LIN frame record with an unknown payload of 100 bytes");
    EXPECT_EQ(Message("09 1b 01 d202964900000000 62d3994900000000"),
              "lin1 wake-up signal at 1.234567890 s");
}

} // namespace
